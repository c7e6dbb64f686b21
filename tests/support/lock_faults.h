// Locks that fail on demand, and the deadlines of waits. A test program that uses it is linked with
// support/lock_faults.cpp, and with the wrappers that it defines.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_

#include <chrono>
#include <cstddef>

namespace tarsio_test {

// While it lives, the lock operation of this thread that comes after `allowed` others fails as one
// does that the system has no room for. One at a time; no thread may begin meanwhile.
class LockFault {
 public:
  explicit LockFault(size_t allowed);
  LockFault(const LockFault&) = delete;
  LockFault& operator=(const LockFault&) = delete;
  ~LockFault();
};

// While it lives, notes the deadline, on the system clock, that this thread waits for. One at a
// time.
class DeadlineWatch {
 public:
  DeadlineWatch();
  DeadlineWatch(const DeadlineWatch&) = delete;
  DeadlineWatch& operator=(const DeadlineWatch&) = delete;
  ~DeadlineWatch();

  // The last one; the clock's epoch if there has been no wait with a deadline on that clock.
  static std::chrono::system_clock::time_point Last();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_
