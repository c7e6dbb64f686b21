#ifndef TARSIO_COMMON_TESTS_SUPPORT_MEMORY_H_
#define TARSIO_COMMON_TESTS_SUPPORT_MEMORY_H_

#include <cstdint>

namespace tarsio_test {

// Main memory in bytes that programs can still use; 0 if unknown.
uint64_t FreeMemory();

// Private main memory of this process in bytes.
uint64_t ProcessMemory();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_MEMORY_H_
