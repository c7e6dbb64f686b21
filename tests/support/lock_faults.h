// Locks that fail on demand, and what threads wait for and notify. A test program that uses it is
// linked with support/lock_faults.cpp, and with the wrappers that it defines.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

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
  // When the first such wait was entered; the epoch if there has been none.
  static std::chrono::system_clock::time_point FirstEntry();
};

// While it lives, notes what this thread notifies. One at a time.
class NotificationWatch {
 public:
  struct Notification {
    const void* condition;
    bool ofAll;   // else of one
    bool locked;  // this thread had a lock then, one that it has taken since the watch began
  };

  NotificationWatch();
  NotificationWatch(const NotificationWatch&) = delete;
  NotificationWatch& operator=(const NotificationWatch&) = delete;
  ~NotificationWatch();

  // To be called by the thread that is watched.
  static std::vector<Notification> All();
};

// How many waits without a deadline the process has begun. Each counts before it releases its lock.
size_t WaitsBegun();

// Calls `hook` when this thread is about to begin a wait without a deadline: with its lock still
// held, behind its last look at what it waits for. Once; one at a time.
void BeforeNextWait(std::function<void()> hook);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_
