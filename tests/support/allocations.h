// Counts the program's allocations and makes them fail on demand. Programs that use it are linked
// with support/allocations.cpp.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_ALLOCATIONS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_ALLOCATIONS_H_

#include <cstddef>
#include <cstdint>

namespace tarsio_test {

// Whether allocations can be counted and failed. The thread sanitizer's operator new cannot be
// replaced.
extern const bool kAllocationsAreSeen;
// Whether that includes the library. A DLL keeps the runtime's operator new.
extern const bool kAllocationsOfTheLibraryAreSeen;

// The number of live allocations; 0 if allocations cannot be counted.
size_t LiveAllocations();

// In its scope, allocations are counted, and after `allowed` allocations the next `refused` throw
// std::bad_alloc. Only one object may exist, and no other thread may allocate meanwhile.
class AllocationWatch {
 public:
  explicit AllocationWatch(size_t allowed = SIZE_MAX, size_t refused = SIZE_MAX);
  AllocationWatch(const AllocationWatch&) = delete;
  AllocationWatch& operator=(const AllocationWatch&) = delete;
  ~AllocationWatch();

  // The number of allocations so far, including failed ones.
  size_t Count() const;
};

// Calls `function` once, at the calling thread's next allocation.
void AtNextAllocation(void (*function)());

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_ALLOCATIONS_H_
