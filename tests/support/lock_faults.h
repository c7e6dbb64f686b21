// Makes locks fail on demand and records the deadlines and notifications of threads. Programs that
// use it are linked with support/lock_faults.cpp and the wrappers that it defines.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

namespace tarsio_test {

// In its scope, this thread's lock operation after `allowed` successful ones fails for lack of
// resources. Only one object may exist, and no thread may start meanwhile.
class LockFault {
 public:
  explicit LockFault(size_t allowed);
  LockFault(const LockFault&) = delete;
  LockFault& operator=(const LockFault&) = delete;
  ~LockFault();
};

// In its scope, records the deadlines on the system clock that this thread waits for. Only one
// object may exist.
class DeadlineWatch {
 public:
  DeadlineWatch();
  DeadlineWatch(const DeadlineWatch&) = delete;
  DeadlineWatch& operator=(const DeadlineWatch&) = delete;
  ~DeadlineWatch();

  // The last deadline; the clock's epoch if there was no such wait.
  static std::chrono::system_clock::time_point Last();
  // When the first such wait started; the epoch if there was none.
  static std::chrono::system_clock::time_point FirstEntry();
};

// In its scope, records this thread's notifications. Only one object may exist.
class NotificationWatch {
 public:
  struct Notification {
    const void* condition;
    bool ofAll;   // false: of one thread
    bool locked;  // this thread held a lock that it took after the watch began
  };

  NotificationWatch();
  NotificationWatch(const NotificationWatch&) = delete;
  NotificationWatch& operator=(const NotificationWatch&) = delete;
  ~NotificationWatch();

  // Call it on the watched thread.
  static std::vector<Notification> All();
};

// The number of waits without a deadline that the process has begun. Each is counted before it
// releases its lock.
size_t WaitsBegun();

// Calls `hook` once, when this thread next begins a wait without a deadline: after its last check
// of the condition, with the lock still held. Only one hook may be set.
void BeforeNextWait(std::function<void()> hook);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_LOCK_FAULTS_H_
