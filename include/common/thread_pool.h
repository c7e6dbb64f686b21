#ifndef TARSIO_COMMON_THREAD_POOL_H_
#define TARSIO_COMMON_THREAD_POOL_H_

/// \file
/// A named thread pool that grows on demand and shrinks when idle.

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

/// Runs tasks on worker threads. Each submission starts another worker until the limit is reached,
/// even if other workers are idle. A worker that gets no task for 1000 ms exits.
///
///     auto pool = std::make_shared<tarsio::ThreadPool>("readers", 4, 0, 64);
///     pool->SubmitTask([] { Work(); });
///     pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_DRAIN);  // all tasks have run
///
/// Requires: a `std::shared_ptr` owns the pool. A task is copied under the queue's lock, so copying
///           what it owns must not use the pool. SHUTDOWN_NOW also destroys the pending
///           tasks under that lock.
/// Guarantees: tasks are dequeued in FIFO order, though two workers may start them in the other
///           order. A dequeued task runs to completion unless the process ends. Workers keep the
///           pool alive: if the host drops its last reference while a worker lives, all pending
///           tasks run, and the destructor runs on a worker.
/// Threads:  every member may be called concurrently, except that SetName() must not run
///           concurrently with GetName(), SubmitTask() or another SetName(). A task must not call
///           Shutdown() of its own pool: it would wait for itself.
/// Ordering: everything done before a SubmitTask() is visible to the task. What a task did is
///           visible after a Shutdown() that waited for it, but not after Wait().
/// Throws:   `std::system_error` if a lock or a thread fails, or the constructor lacks resources on
///           Windows, and `std::bad_alloc`.
class TARSIO_COMMON_API ThreadPool : public std::enable_shared_from_this<ThreadPool> {
 public:
  /// What Shutdown() does before it waits for the workers to exit. Any other value is accepted and
  /// acts as SHUTDOWN_DRAIN.
  enum SHUTDOWN_METHOD : int32_t {
    SHUTDOWN_NOW = 0,    ///< Discards the pending tasks and closes the pool permanently.
    SHUTDOWN_WAIT = 1,   ///< Calls Wait(), which can hang (by design); prefer SHUTDOWN_DRAIN.
    SHUTDOWN_DRAIN = 2,  ///< Nothing: live workers exit only when no task is pending.
  };

  /// Starts no thread. The arguments are not validated: with `threadLimit` 0 no task ever runs, and
  /// with `taskCapacity` 0 every submission blocks forever. `reserved` has no effect.
  ThreadPool(std::string poolName, uint64_t threadLimit, uint64_t reserved, uint64_t taskCapacity);

  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// Discards the tasks that are still pending. Does not wait: live workers own the pool, so there
  /// are none left.
  virtual ~ThreadPool();

  /// Returns the name passed to the constructor or to the last SetName().
  std::string GetName() const;
  /// Changes what GetName() returns. The name has no other effect; threads are not renamed.
  void SetName(const std::string& newName);

  /// Returns the number of tasks that no worker has dequeued yet.
  uint64_t GetPendingTaskNumber();
  /// Returns the number of live workers, including idle ones.
  uint64_t GetRunningThreadNumber();

  /// Queues a copy of `task` and starts a worker if the limit is not reached. Blocks while the
  /// queue is full, and forever on a pool that was shut down with SHUTDOWN_NOW. Always returns
  /// true, except at the end of a process on Windows, when a DLL's statics are destroyed: the
  /// workers have been killed by then, so it drops the task and returns false.
  ///
  /// A `std::exception` thrown by a task is logged at LOG_LEVEL_FATAL ("task exception: ..."), and
  /// so is an empty task; any other exception ends the process. If logging fails
  /// with a `std::exception`, for example from the log's sink, the message is lost and the worker
  /// continues; any other exception from the sink ends the process.
  ///
  /// Throws: `std::system_error` if no thread can be started: the task stays queued, and the next
  /// submission tries again, but not one that is already waiting for room. If the queue is full and
  /// there is no worker, one is started first; if that fails, the task is not queued.
  /// `std::bad_weak_ptr` if no shared pointer owns the pool: the task stays queued, but never runs.
  /// Whatever copying the task throws: the task is not queued.
  bool SubmitTask(std::function<void()>& task);
  /// As above, for a temporary function.
  bool SubmitTask(std::function<void()>&& task) { return SubmitTask(task); }
  /// As above, for a const function.
  bool SubmitTask(const std::function<void()>& task) {
    return SubmitTask(std::function<void()>(task));
  }

  /// Does what `method` says, then waits until every worker has exited. Workers exit only after
  /// they have been idle for 1000 ms, so this takes up to a second longer than the last task.
  /// Without workers it returns at once, except that SHUTDOWN_WAIT waits for pending tasks as
  /// Wait() does.
  ///
  /// When it returns, all tasks have run, or have been discarded with SHUTDOWN_NOW. Exceptions:
  /// other threads keep submitting tasks, or there was no worker to run them (limit 0, or a
  /// SubmitTask() that threw). With any method but SHUTDOWN_NOW the pool stays open, and later
  /// submissions start workers again.
  ///
  /// At the end of a process on Windows, in the destructors of a DLL's statics, Shutdown() and
  /// Wait() return at once, and the numbers of tasks and workers are 0. Do not call Shutdown() and
  /// Wait() from such destructors while FreeLibrary() unloads the DLL: threads cannot start or exit
  /// then, so this is a deadlock.
  void Shutdown(SHUTDOWN_METHOD method);

  /// Waits until the queue is empty; the last tasks may still be running. Wait() may miss the
  /// moment when the last task is dequeued (by design). It then waits until another task is
  /// dequeued, forever if none is submitted. It also waits forever if another thread discards the
  /// pending tasks with SHUTDOWN_NOW. To wait for tasks reliably, use Shutdown(SHUTDOWN_DRAIN) or a
  /// CountDownLatch. In a task, Wait() waits for other workers to dequeue the pending tasks:
  /// forever if there are none.
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
  std::mutex waitMutex;  // used by Wait() only; taken before the queue's mutex
  std::condition_variable taskTaken;
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_THREAD_POOL_H_
