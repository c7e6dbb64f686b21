#include "everyday_use.h"

// A module of a host's that needs the library.
extern "C" bool UsePlugin() { return tarsio_test::EverydayUse(); }
