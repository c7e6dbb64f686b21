#ifndef TARSIO_COMMON_TIMER_H_
#define TARSIO_COMMON_TIMER_H_

/// \file
/// One-shot and repeating timers, fired by one thread per process.

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "common/export.h"

namespace component {

/// The state of a timer. Times are in whole milliseconds: a timeout is a duration, an expiry is a
/// point in time on the clock of TimerManager::GetCurrentMillisecs().
///
/// Requires: a `std::shared_ptr` owns the timer before Start() or Stop(). While a timer is queued,
///           the manager owns it too.
/// Threads:  every member may be called concurrently, and from a timer's action.
/// Ordering: everything done before a Start() is visible to the action.
class TARSIO_COMMON_API Timer : public std::enable_shared_from_this<Timer> {
 public:
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Does not stop the timer. If the timer is still marked started, the process ends by
  /// `std::terminate` (by design). A queued timer is never destroyed, since the manager owns it,
  /// and at the end of the process the manager marks all queued timers as stopped. So this concerns
  /// a timer with timeout 0 that was not stopped, one that no shared pointer owned at its Start(),
  /// and one that was started after the manager's end, when the statics are destroyed. If the timer
  /// thread is gone (see Start()), destroying a timer that is marked started is harmless.
  // NOLINTNEXTLINE(bugprone-exception-escape): as said
  virtual ~Timer();

  /// Queues the timer to fire after its timeout. Does nothing if it is already marked started. A
  /// timer with timeout 0 is marked started but never fires (by design). Waits while timers are
  /// being fired, unless called from a timer's action.
  ///
  /// Where the timer thread is gone without having ended, Start() and Stop() only change the mark:
  /// when a process on Windows ends and a DLL's statics are destroyed, and in a process forked from
  /// one that had started a timer.
  ///
  /// Throws: `std::bad_weak_ptr` if no shared pointer owns the timer, which stays marked started
  /// (by design). `std::system_error` or `std::bad_alloc` if the timer thread cannot be started:
  /// the timer stays queued and marked started, and the next timer that is started tries again.
  /// After any other failure, such as `std::bad_alloc` while queueing, the timer is not started.
  void Start();

  /// Removes the timer from the queue. Does nothing if it is not marked started. Waits while timers
  /// are being fired, unless called from a timer's action, so that afterwards the action of a
  /// repeating timer is not running. There are four exceptions (by design):
  ///
  /// - A one-shot timer is no longer marked started when its action runs, so Stop() does not wait.
  /// - If two threads stop a timer at the same time, one of them may return while its action runs.
  /// - A repeating timer that stops itself in its own action is queued again and continues to fire.
  /// - If one thread stops a timer while another starts it, the timer may stay queued, marked
  ///   stopped. To stop it, start it again first.
  ///
  /// Throws: `std::bad_weak_ptr` if no shared pointer owns the timer, which stays marked stopped.
  void Stop();

  /// Sets the expiry. For use by the manager: for a queued timer, this breaks the order of the
  /// queue until the next Stop() of any timer.
  void SetExpire(unsigned long long newExpire);
  /// Returns when the timer fires next, or when it was last due. Meaningless before the first
  /// Start().
  unsigned long long GetExpire();

  /// Returns the milliseconds from Start() to the firing. Never changes.
  unsigned long long GetTimeout() const;
  /// Returns whether the timer repeats. Never changes.
  bool GetLoop() const;

  /// Sets only the mark: does not queue or remove the timer.
  void SetState(bool started);

  /// The timer's action. Runs on the timer thread; no other timer fires until it returns. It may
  /// start and stop timers, including this one. If it throws, or calls `exit()`, the process ends
  /// by `std::terminate`; except that `exit()` works in a Windows program that uses the DLL.
  virtual void OnTimeout() = 0;

 protected:
  /// Creates a timer that is not started.
  Timer(unsigned long long timeoutMs, bool repeating);

 private:
  friend class TimerManager;

  const unsigned long long timeout;
  const bool loop;
  // Both relaxed: read and written without a lock.
  std::atomic<unsigned long long> expire{0};  // no meaning before the first Start()
  std::atomic<bool> state;
  // Both guarded by the manager's mutex.
  size_t entries = 0;   // in the manager's queue
  size_t position = 0;  // of the entry that was moved last
};

/// A timer that calls a function.
///
///     auto timer = std::make_shared<component::TsTimer>(1000, true);
///     timer->Init([] { Tick(); });
///     timer->Start();
class TARSIO_COMMON_API TsTimer : public Timer {
 public:
  /// Fires `timeoutMs` milliseconds after Start(), at the next pass of the timer thread (one every
  /// 5 ms). A repeating timer counts its timeout from the pass that fired it, so delays add up.
  TsTimer(unsigned long long timeoutMs, bool repeating);
  ~TsTimer() override;

  /// Sets the function to call.
  ///
  /// Requires: called before Start(), and not while the timer is queued.
  void Init(std::function<void()> newCallback);

  /// Calls the function. Silently ignores an empty function and any `std::exception` that it
  /// throws; any other exception ends the process.
  void OnTimeout() override;

 private:
  std::function<void()> callback;
};

/// Owns all queued timers and the thread that fires them. There is one instance per process. Its
/// thread starts with the first timer that is queued and ends with the process.
///
/// Threads: every member may be called concurrently, and from a timer's action.
class TimerManager {
 public:
  TimerManager(const TimerManager&) = delete;
  TimerManager& operator=(const TimerManager&) = delete;

  /// Returns the instance, which the first call creates. Does not start the thread.
  static TARSIO_COMMON_API TimerManager* GetInstance();

  /// Returns the timers' clock: milliseconds since 1970-01-01 UTC on the system's wall clock (by
  /// design). If that clock is set back by an hour, all pending timers are delayed by an hour. If
  /// it is set forward, timers whose expiry it passes fire at once, a repeating one only once. If
  /// it is set back during an action, a one-shot timer that restarts itself there fires repeatedly
  /// until the clock has caught up: all timers of a pass are compared with one time (by design).
  TARSIO_COMMON_API unsigned long long GetCurrentMillisecs() const;

  /// Queues `timer` to fire after its timeout. Ignores a null timer and one with timeout 0. For use
  /// by Timer; this function and the next two are not exported.
  void AddTimer(std::shared_ptr<Timer> timer);
  /// Removes every entry of `timer` from the queue.
  void RemoveTimer(std::shared_ptr<Timer> timer);
  /// Restarts the timeout of `timer` from now, if it is queued.
  void ResetTimer(std::shared_ptr<Timer> timer);

 private:
  friend class Timer;
  class Heap;
  class ShutdownAtExit;

  TimerManager() = default;
  ~TimerManager() = default;

  void Add(std::shared_ptr<Timer> timer, bool& queued);
  void Remove(const std::shared_ptr<Timer>& timer);
  static void Arm(Timer* timer, unsigned long long now);
  void RestoreOrder();

  void StartThread();
  void Run();
  void CheckTimers();
  void Shutdown();

  std::vector<std::shared_ptr<Timer>> queue;  // a heap: the earliest expiry at the front
  std::recursive_mutex mutex;                 // guards queue and thread; held while timers fire
  std::atomic<bool> running{false};
  std::shared_ptr<std::thread> thread;
  bool ended = false;  // guarded by mutex; set when the process ends: nothing is queued any more
};

}  // namespace component

#endif  // TARSIO_COMMON_TIMER_H_
