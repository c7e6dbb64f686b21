#ifndef TARSIO_COMMON_TIMER_H_
#define TARSIO_COMMON_TIMER_H_

/// \file
/// One-shot and repeating timers, fired by one thread of the process.

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "common/export.h"

namespace component {

/// The state of a timer. Times are whole milliseconds: a timeout is a duration, an expiry a point
/// on the clock of TimerManager::GetCurrentMillisecs().
///
/// Requires: a `std::shared_ptr` owns the timer before Start() or Stop(). While a timer is queued,
///          the manager owns it too.
/// Threads: every member may be called from any thread, and from a timer's action.
class TARSIO_COMMON_API Timer : public std::enable_shared_from_this<Timer> {
 public:
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  /// Does not stop the timer: by now it must not be marked started, or the process ends (by
  /// `std::terminate`). A queued timer has an owner, so that concerns a zero-timeout timer that was
  /// not stopped, one that no shared pointer owned at its Start(), and one that was started after
  /// the manager's end, which is when the statics are destroyed. (The manager then marks what is
  /// queued as stopped.) Where the timer thread is gone (see Start()), the mark does no harm.
  // NOLINTNEXTLINE(bugprone-exception-escape): as said
  virtual ~Timer();

  /// Queues the timer to fire after its timeout; does nothing if it is marked started. With timeout
  /// 0 it is marked started and never fires. Waits while timers are being fired, unless called from
  /// a timer's action. Where the timer thread is gone without having ended, Start() and Stop() set
  /// the mark and nothing else: when a process on Windows ends and a DLL's statics are destroyed,
  /// and in a process that was forked from one that has started a timer.
  ///
  /// Throws: `std::bad_weak_ptr` if no shared pointer owns the timer, which stays marked started
  /// (by design); `std::system_error` or `std::bad_alloc` if the timer thread cannot be started, in
  /// which case the timer stays queued and marked, and the next timer that is started tries again;
  /// `std::bad_alloc` before that. After this and any other failure the timer is not started.
  void Start();

  /// Takes the timer out of the queue; does nothing if it is not marked started. Waits while timers
  /// are being fired, unless called from a timer's action; but a one-shot timer is not marked
  /// started any more while its own action runs, so that nothing waits for it. Of two threads that
  /// stop a timer at once, one waits, and the other returns at once, perhaps while the action still
  /// runs. A repeating timer that stops itself in its own action is queued again and goes on
  /// firing.
  ///
  /// Throws: `std::bad_weak_ptr` if no shared pointer owns the timer, which stays marked stopped.
  void Stop();

  /// Sets the expiry. For the manager: changing that of a queued timer upsets its order.
  void SetExpire(unsigned long long newExpire);
  /// When the timer fires next, or was due last. Without meaning before the first Start().
  unsigned long long GetExpire();

  /// The milliseconds from Start() to the firing. Never changes.
  unsigned long long GetTimeout() const;
  /// Whether the timer fires again and again. Never changes.
  bool GetLoop() const;

  /// Sets the mark alone: nothing is queued or taken out.
  void SetState(bool started);

  /// What the timer does when it fires: runs on the timer thread, which fires no other timer
  /// meanwhile. It may start and stop timers, itself included. An exception that leaves it ends the
  /// process; so does `exit()` in it, by `std::terminate`, except in a Windows program with the
  /// DLL.
  virtual void OnTimeout() = 0;

 protected:
  /// A timer that is not started.
  Timer(unsigned long long timeoutMs, bool repeating);

 private:
  friend class TimerManager;

  const unsigned long long timeout;
  const bool loop;
  // Relaxed, both: read and written without a lock.
  std::atomic<unsigned long long> expire{0};  // no meaning before the first Start()
  std::atomic<bool> state;
  // Guarded by the manager's mutex, both.
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
  /// Fires `timeoutMs` milliseconds after Start(), rounded up to the next pass of the timer thread
  /// (every 5 ms); again and again if `repeating`, counted from the pass that fired it, so that
  /// lateness is not caught up.
  TsTimer(unsigned long long timeoutMs, bool repeating);
  ~TsTimer() override;

  /// Sets the function to call. To be called before Start(), never while the timer is queued.
  void Init(std::function<void()> newCallback);

  /// Calls the function. An empty function, and an exception of the standard family, is ignored in
  /// silence; any other exception ends the process.
  void OnTimeout() override;

 private:
  std::function<void()> callback;
};

/// Owns every started timer and the thread that fires them: one instance in a process. The thread
/// starts with the first timer that is queued and ends with the process.
///
/// Threads: every member may be called from any thread, and from a timer's action.
class TimerManager {
 public:
  TimerManager(const TimerManager&) = delete;
  TimerManager& operator=(const TimerManager&) = delete;

  /// The one instance, built by the first caller. Starts no thread.
  static TARSIO_COMMON_API TimerManager* GetInstance();

  /// The timers' clock: milliseconds since 1970-01-01 UTC, on the system's wall clock. When that is
  /// set back by an hour, every pending timer comes an hour late; when it is set forward, those
  /// whose expiry it passes fire at once, a repeating one only once.
  TARSIO_COMMON_API unsigned long long GetCurrentMillisecs() const;

  /// Queues `timer` to fire after its timeout. For Timer, and not exported, as are the next two. A
  /// null timer and one with timeout 0 are ignored.
  void AddTimer(std::shared_ptr<Timer> timer);
  /// Takes every entry of `timer` out of the queue.
  void RemoveTimer(std::shared_ptr<Timer> timer);
  /// Counts the timeout of `timer` from now, if it is queued.
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
  bool ended = false;  // guarded by mutex; the process is ending, so nothing is queued any more
};

}  // namespace component

#endif  // TARSIO_COMMON_TIMER_H_
