#ifndef TARSIO_COMMON_THREAD_POOL_H_
#define TARSIO_COMMON_THREAD_POOL_H_

/// \file
/// A named pool of threads that grows on demand and shrinks by itself.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/blocking_queue.h"
#include "common/export.h"

namespace tarsio {

class Worker;

/// Runs tasks on worker threads. Each submission starts one more worker until the limit is reached,
/// even when others are idle; a worker that finds no task for 1000 ms leaves.
///
///     auto pool = std::make_shared<tarsio::ThreadPool>("readers", 4, 0, 64);
///     pool->SubmitTask([] { Work(); });
///     pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_DRAIN);  // all tasks have run
///
/// Requires: a pool must be owned by a `std::shared_ptr`.
/// Guarantees: tasks are dequeued in FIFO order, though two workers may start them in the other
///           order. A dequeued task runs to completion. Workers keep the pool alive: if the host
///           drops its last reference while a worker lives, all pending tasks run, and the
///           destructor runs on that worker.
/// Threads:  every member may be called from any thread at once, but for SetName(), which must not
///           run beside GetName() or SubmitTask(). From a task, Shutdown() would wait for itself. A
///           task is copied under the queue's lock, so what it owns must not use the pool while it
///           is copied.
/// Throws:   `std::system_error` when the system's locks or threads fail, and memory exhaustion.
class TARSIO_COMMON_API ThreadPool : public std::enable_shared_from_this<ThreadPool> {
 public:
  /// What Shutdown() does before it waits for the workers to leave. Any other value is accepted and
  /// acts as SHUTDOWN_DRAIN.
  enum SHUTDOWN_METHOD : int32_t {
    SHUTDOWN_NOW = 0,    ///< Discards the pending tasks and closes the pool for good.
    SHUTDOWN_WAIT = 1,   ///< Waits until every pending task has been taken; see Wait().
    SHUTDOWN_DRAIN = 2,  ///< Nothing: workers that live leave only when no task is pending.
  };

  /// Starts no thread. Nothing is validated: with `threadLimit` 0 no task ever runs, with
  /// `taskCapacity` 0 every submission blocks forever. `reserved` is kept and has no effect.
  ThreadPool(std::string poolName, uint64_t threadLimit, uint64_t reserved, uint64_t taskCapacity);

  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Shutdown(SHUTDOWN_NOW).
  virtual ~ThreadPool();

  /// The name that the constructor or the last SetName() was given. The pool makes no use of it.
  std::string GetName() const;
  /// Changes what GetName() returns. Nothing else shows the name.
  void SetName(const std::string& newName);

  /// The number of tasks that no worker has taken yet.
  uint64_t GetPendingTaskNumber();
  /// The number of workers that live, idle ones included.
  uint64_t GetRunningThreadNumber();

  /// Queues a copy of `task` and starts a worker if fewer than the limit live. Blocks while the
  /// queue is full, and forever on a pool that was shut down with SHUTDOWN_NOW. Always true,
  /// except at the end of a process on Windows, when a DLL's statics are destroyed: it drops the
  /// task and returns false, since the workers have been killed.
  ///
  /// A task's `std::exception` is reported at LOG_LEVEL_FATAL ("task exception: ..."), an empty
  /// task the same way; any other exception ends the process. If the report itself fails with a
  /// `std::exception`, from the log's sink for instance, it is lost and the worker goes on; any
  /// other exception of a sink ends the process.
  ///
  /// Throws: `std::system_error` if a thread cannot be started: the task stays queued, and the next
  /// submission tries again. `std::bad_weak_ptr` if no shared pointer owns the pool: the task stays
  /// queued, but no worker will ever run it. If the queue is full and no worker lives, one is
  /// started first, and the task is not queued if that fails. And what copying the task throws;
  /// nothing is then queued.
  bool SubmitTask(std::function<void()>& task);
  /// As above, for a function that was made for the call.
  bool SubmitTask(std::function<void()>&& task) { return SubmitTask(task); }
  /// As above, for a function that may not be changed.
  bool SubmitTask(const std::function<void()>& task) {
    return SubmitTask(std::function<void()>(task));
  }

  /// Acts on `method`, then waits until every worker has left. Workers leave only by having been
  /// idle for 1000 ms, so this lasts up to a second longer than the last task; a pool without
  /// workers is shut down at once.
  ///
  /// All tasks have then run, or with SHUTDOWN_NOW have been discarded, unless other threads go on
  /// submitting, or no worker lived to run them: with limit 0, after a failed SubmitTask(). With
  /// any method but SHUTDOWN_NOW the pool stays open, and a later submission starts workers again.
  /// At the end of a process on Windows, in the destructors of a DLL's statics, Shutdown() and
  /// Wait() return at once. But do not call them there while the DLL is unloaded by FreeLibrary():
  /// a thread cannot start or end meanwhile, so they wait for it and it waits for them.
  void Shutdown(SHUTDOWN_METHOD method);

  /// Returns when the queue is empty; the last tasks may still be running. A wake-up that falls
  /// between the look at the queue and the sleep is missed: Wait() then lasts until the next task
  /// is taken, forever if none comes. To wait for all tasks without that, call
  /// Shutdown(SHUTDOWN_DRAIN), or let the tasks count down a CountDownLatch. Called from a task, it
  /// waits for other workers to take what is pending: forever, if there are none.
  void Wait();

 private:
  friend class Worker;

  bool AddWorker();
  void StartWorker();
  bool RemoveWorker(const std::shared_ptr<Worker>& worker);
  void RunTask(const std::shared_ptr<Worker>& worker);

  std::string name;
  const uint64_t maxThreadNumber;
  std::atomic<uint64_t> runningThreadNumber{0};  // written under workersMutex
  const uint64_t reservedNumber;
  const uint64_t queueCapacity;
  std::mutex workersMutex;  // taken before the queue's and before a worker's mutex
  std::condition_variable workersChanged;
  const std::shared_ptr<BlockingQueue<std::function<void()>>> queue;
  std::vector<std::shared_ptr<Worker>> workers;  // guarded by workersMutex
  std::mutex waitMutex;                          // Wait() alone; taken before the queue's mutex
  std::condition_variable taskTaken;
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_THREAD_POOL_H_
