#ifndef TARSIO_COMMON_LATCH_H_
#define TARSIO_COMMON_LATCH_H_

/// \file
/// Two small synchronisers by which threads wait for one another.

#include <condition_variable>
#include <mutex>

#include "common/export.h"

namespace tarsio {

/// A counter, set once, that threads wait for until it has been counted down to zero. There is no
/// reset: once it is zero, every Wait() returns at once.
///
/// Requires: no call is in progress when the latch is destroyed. GetCount() == 0 is not enough: the
/// last CountDown() may not have returned. Join its thread first, or share the latch by a
/// `std::shared_ptr`.
/// Threads: every member may be called from any number of threads at once.
/// Throws:  `std::system_error` when the system's locks fail.
class TARSIO_COMMON_API CountDownLatch {
 public:
  /// A latch to be counted down `initialCount` times; with 0 it is open from the start.
  explicit CountDownLatch(unsigned int initialCount);
  CountDownLatch(const CountDownLatch&) = delete;
  CountDownLatch& operator=(const CountDownLatch&) = delete;
  ~CountDownLatch();

  /// One step down; wakes every waiting thread when the count reaches zero. At zero, does nothing.
  void CountDown();

  /// Waits for the count to reach zero, at most `timeoutMs` milliseconds on the system clock: 0
  /// waits without limit, 2^63 and more return at once, and a value too large for the clock waits
  /// as long as the clock can tell.
  ///
  /// Waits once: a spurious wake-up ends it early, and nothing is returned. A caller that needs to
  /// know reads GetCount() afterwards.
  void Wait(unsigned long long timeoutMs);

  /// How many steps are left; 0 means that the latch is open.
  unsigned int GetCount();

 private:
  std::condition_variable cv;
  std::mutex mutex;
  unsigned int count;  // guarded by mutex; never wraps below zero
};

/// A wake-up point that can be used again and again. The count is what the constructor was given
/// plus the number of threads inside Wait(). A wake-up while no thread waits is lost.
///
/// Requires: no call is in progress when the object is destroyed.
/// Threads: every member may be called from any number of threads at once.
/// Throws:  `std::system_error` when the system's locks fail.
class TARSIO_COMMON_API CountOutWake {
 public:
  /// A count that begins at `initialCount`, which has no other meaning.
  explicit CountOutWake(unsigned int initialCount);
  /// A count that begins at 0, so that it is the number of threads that wait.
  CountOutWake();
  CountOutWake(const CountOutWake&) = delete;
  CountOutWake& operator=(const CountOutWake&) = delete;
  ~CountOutWake();

  /// Wakes one waiting thread, if any.
  void CountOut();
  /// Wakes every waiting thread.
  void CountAll();

  /// Waits once for a wake-up, at most `timeoutNs` **nanoseconds** on the system clock (unlike
  /// CountDownLatch: 1000000000 is a second). 0 waits without limit, 2^63 and more
  /// return at once, and a value too large for the clock waits as long as the clock can tell. A
  /// spurious wake-up ends the wait early.
  void Wait(unsigned long long timeoutNs);

  /// The initial count plus the number of threads inside Wait(). Wraps at 2^32.
  unsigned int GetCount();

 private:
  std::mutex mutex;
  std::condition_variable cv;
  unsigned int count;  // guarded by mutex; wraps at 2^32
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_LATCH_H_
