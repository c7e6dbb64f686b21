#ifndef TARSIO_COMMON_TESTS_SUPPORT_MEMORY_H_
#define TARSIO_COMMON_TESTS_SUPPORT_MEMORY_H_

#include <cstdint>

namespace tarsio_test {

// Bytes of main memory that programs may still take. 0 if the system does not tell.
uint64_t FreeMemory();

// Bytes of main memory that this process occupies for itself.
uint64_t ProcessMemory();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_MEMORY_H_
