// Counts the allocations of the program, and makes them fail on demand. A test program that uses it
// is linked with support/allocations.cpp.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_ALLOCATIONS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_ALLOCATIONS_H_

#include <cstddef>
#include <cstdint>

namespace tarsio_test {

// Whether anything is counted and can fail. The thread sanitizer comes with an operator new that
// cannot be replaced.
extern const bool kAllocationsAreSeen;
// Whether that holds inside the library, too. A DLL keeps the runtime's operator new.
extern const bool kAllocationsOfTheLibraryAreSeen;

// The allocations of the program that have not been released. 0 where none are seen.
size_t LiveAllocations();

// While it lives, allocations are counted, and the next `refused` after the first `allowed` throw
// std::bad_alloc. One at a time; no other thread may allocate meanwhile.
class AllocationWatch {
 public:
  explicit AllocationWatch(size_t allowed = SIZE_MAX, size_t refused = SIZE_MAX);
  AllocationWatch(const AllocationWatch&) = delete;
  AllocationWatch& operator=(const AllocationWatch&) = delete;
  ~AllocationWatch();

  // The number so far, the failed ones included.
  size_t Count() const;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_ALLOCATIONS_H_
