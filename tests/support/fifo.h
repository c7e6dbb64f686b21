// FIFOs.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FIFO_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FIFO_H_

#include <string>

namespace tarsio_test {

// Creates a FIFO in the current directory. Returns false on systems without FIFOs.
bool MakeFifo(const std::string& name);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FIFO_H_
