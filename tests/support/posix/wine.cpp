#include "support/wine.h"

namespace tarsio_test {

bool RunsUnderWine() { return false; }

}  // namespace tarsio_test
