#include "support/fifo.h"

#include <sys/stat.h>

namespace tarsio_test {

bool MakeFifo(const std::string& name) { return ::mkfifo(name.c_str(), 0600) == 0; }

}  // namespace tarsio_test
