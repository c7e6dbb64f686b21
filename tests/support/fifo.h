// Pipes that are files.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FIFO_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FIFO_H_

#include <string>

namespace tarsio_test {

// Makes one in the current directory. False where files cannot be pipes.
bool MakeFifo(const std::string& name);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FIFO_H_
