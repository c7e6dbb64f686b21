#include "everyday_use.h"

// A plugin that needs the library.
extern "C" bool UsePlugin() { return tarsio_test::EverydayUse(); }
