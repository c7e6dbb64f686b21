#include "support/fifo.h"

namespace tarsio_test {

bool MakeFifo(const std::string& /*name*/) { return false; }

}  // namespace tarsio_test
