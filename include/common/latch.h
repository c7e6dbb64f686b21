#ifndef TARSIO_COMMON_LATCH_H_
#define TARSIO_COMMON_LATCH_H_

/// \file
/// A count-down latch and a wake-up point.

#include <condition_variable>
#include <mutex>

#include "common/export.h"

namespace tarsio {

/// A counter that threads wait for until it has been counted down to zero. It cannot be reset: once
/// it is zero, every Wait() returns at once.
///
/// Requires: no call is in progress when the latch is destroyed. GetCount() == 0 is not sufficient:
///           the last CountDown() may not have returned yet. Join its thread first, or share the
///           latch by a `std::shared_ptr`.
/// Threads:  every member may be called concurrently.
/// Ordering: everything done before a CountDown() is visible to a thread once GetCount() has
///           returned 0 to it.
/// Throws:   `std::system_error` if a lock fails, or the constructor lacks resources on Windows.
class TARSIO_COMMON_API CountDownLatch {
 public:
  /// Creates a latch that opens after `initialCount` steps; with 0 it is open from the start.
  explicit CountDownLatch(unsigned int initialCount);
  CountDownLatch(const CountDownLatch&) = delete;
  CountDownLatch& operator=(const CountDownLatch&) = delete;
  ~CountDownLatch();

  /// Decrements the count and wakes all waiting threads when it reaches zero. Does nothing at zero.
  void CountDown();

  /// Waits for the count to reach zero, for at most `timeoutMs` milliseconds on the system clock. 0
  /// waits without limit. 2^63 and more return at once. Other values that exceed the clock's range
  /// wait until its last point in time.
  ///
  /// Waits only once: a spurious wake-up ends the wait early. To find out why it returned, call
  /// GetCount().
  void Wait(unsigned long long timeoutMs);

  /// Returns the number of steps left; 0 means that the latch is open.
  unsigned int GetCount();

 private:
  std::condition_variable cv;
  std::mutex mutex;
  unsigned int count;  // guarded by mutex; never wraps below zero
};

/// A reusable wake-up point. Its count is the number of threads inside Wait() plus the initial
/// count. A wake-up while no thread waits is lost.
///
/// Requires: no call is in progress when the object is destroyed.
/// Threads:  every member may be called concurrently.
/// Throws:   `std::system_error` if a lock fails, or the constructor lacks resources on Windows.
class TARSIO_COMMON_API CountOutWake {
 public:
  /// Starts the count at `initialCount`, which has no other effect.
  explicit CountOutWake(unsigned int initialCount);
  /// Starts the count at 0, so that it is the number of waiting threads.
  CountOutWake();
  CountOutWake(const CountOutWake&) = delete;
  CountOutWake& operator=(const CountOutWake&) = delete;
  ~CountOutWake();

  /// Wakes one waiting thread, if any.
  void CountOut();
  /// Wakes every waiting thread.
  void CountAll();

  /// Waits once for a wake-up, for at most `timeoutNs` **nanoseconds** on the system clock (by
  /// design; CountDownLatch takes milliseconds): 1000000000 is a second. 0 waits without limit.
  /// 2^63 and more return at once. Other values that exceed the clock's range wait until its last
  /// point in time. A spurious wake-up ends the wait early.
  void Wait(unsigned long long timeoutNs);

  /// Returns the initial count plus the number of threads inside Wait(). Wraps at 2^32.
  unsigned int GetCount();

 private:
  std::mutex mutex;
  std::condition_variable cv;
  unsigned int count;  // guarded by mutex; wraps at 2^32
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_LATCH_H_
