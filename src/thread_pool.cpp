#include "common/thread_pool.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "common/log.h"
#include "platform/platform.h"
#include "worker.h"

namespace tarsio {

namespace {

constexpr int kIdleLimitMs = 1000;

// Part of the interface, since hosts match on it, so not __LINE__.
constexpr int kTaskExceptionLine = 196;

// Ignores failures: there may be no memory for the report, or the host's sink may throw.
void ReportTaskException(const std::exception& error) {
  try {
    Log::GetInstance().DoLog(LOG_LEVEL_FATAL, __FILE__, kTaskExceptionLine,
                             "tarsio::ThreadPool::RunTask", "task exception: %s", error.what());
  } catch (const std::exception&) {
    // The worker goes on.
  }
}

class NotOwned : public std::bad_weak_ptr {
 public:
  const char* what() const noexcept override {
    return "tarsio::ThreadPool: no shared_ptr owns the pool; create it with std::make_shared";
  }
};

std::shared_ptr<ThreadPool> Owned(ThreadPool* pool) {
  try {
    return pool->shared_from_this();
  } catch (const std::bad_weak_ptr&) {
    throw NotOwned();
  }
}

}  // namespace

ThreadPool::ThreadPool(std::string poolName, uint64_t threadLimit, uint64_t reserved,
                       uint64_t taskCapacity)
    : name(std::move(poolName)),
      maxThreadNumber(threadLimit),
      reservedNumber(reserved),
      queueCapacity(taskCapacity),
      queue(std::make_shared<BlockingQueue<std::function<void()>>>(queueCapacity)) {
  static_cast<void>(reservedNumber);  // part of the interface, never used
  internal::Create(workersChanged);
  internal::Create(taskTaken);
}

ThreadPool::~ThreadPool() {
  // If the other threads are gone, one of them may have held a lock. No worker runs, since its
  // thread would own the pool; the members' destructors discard the tasks.
  if (platform::ThreadsMayBeGone()) return;
  try {
    Shutdown(SHUTDOWN_NOW);
  } catch (const std::exception&) {
    // On Windows the first use of a lock may allocate.
  }
}

std::string ThreadPool::GetName() const { return name; }

void ThreadPool::SetName(const std::string& newName) { name = newName; }

uint64_t ThreadPool::GetPendingTaskNumber() {
  if (platform::ProcessIsEnding()) return 0;
  const std::lock_guard<std::mutex> lock(workersMutex);
  return queue->Size();
}

uint64_t ThreadPool::GetRunningThreadNumber() {
  if (platform::ProcessIsEnding()) return 0;
  const std::lock_guard<std::mutex> lock(workersMutex);
  return runningThreadNumber.load(std::memory_order_relaxed);
}

bool ThreadPool::SubmitTask(std::function<void()>& task) {
  if (platform::ProcessIsEnding()) return false;
  platform::PinLibrary();  // for the workers; never under a lock
  // If a thread could not be started earlier, the queue may be full and no worker takes from it.
  if (runningThreadNumber.load(std::memory_order_relaxed) == 0 && queueCapacity > 0 &&
      queue->Size() >= queueCapacity) {
    AddWorker();
  }
  const bool queued = queue->Push(task, 0);
  AddWorker();
  return queued;
}

void ThreadPool::Shutdown(SHUTDOWN_METHOD method) {
  if (platform::ProcessIsEnding()) return;
  if (method == SHUTDOWN_NOW) queue->Close();
  if (method == SHUTDOWN_WAIT) Wait();
  std::unique_lock<std::mutex> lock(workersMutex);
  workersChanged.wait(lock, [this] { return workers.empty(); });
}

void ThreadPool::Wait() {
  if (platform::ProcessIsEnding()) return;
  std::unique_lock<std::mutex> lock(waitMutex);
  taskTaken.wait(lock, [this] { return queue->Size() == 0; });
}

// Starts a worker unless the limit is reached.
bool ThreadPool::AddWorker() {
  if (runningThreadNumber.load(std::memory_order_relaxed) >= maxThreadNumber) return true;
  const std::lock_guard<std::mutex> lock(workersMutex);
  if (runningThreadNumber.load(std::memory_order_relaxed) >= maxThreadNumber) return true;
  workers.push_back(std::make_shared<Worker>(name, Owned(this)));
  StartWorker();
  return true;
}

// Requires workersMutex. Starts the last worker of the list, or removes it if that fails.
void ThreadPool::StartWorker() {
  try {
    workers.back()->Start();
  } catch (...) {
    workers.pop_back();
    throw;
  }
  runningThreadNumber.fetch_add(1, std::memory_order_relaxed);
}

// Removes a retiring worker from the pool. Returns false if the worker has to go on working.
bool ThreadPool::RemoveWorker(const std::shared_ptr<Worker>& worker) {
  const std::lock_guard<std::mutex> lock(workersMutex);
  // Decrement first. A submission that pushes after the check below then sees room for a worker and
  // starts one. A submission that saw the limit reached has pushed before, so its task is seen
  // here.
  runningThreadNumber.fetch_sub(1, std::memory_order_relaxed);
  const bool taskLeft = queue->Size() > 0;
  if (taskLeft) {
    try {
      // The worker's copy of the name: the host may be changing the pool's.
      workers.push_back(std::make_shared<Worker>(worker->Name(), shared_from_this()));
      StartWorker();
    } catch (const std::exception&) {
      // No successor can be started, so this worker runs the task.
      runningThreadNumber.fetch_add(1, std::memory_order_relaxed);
      worker->Reactivate();
      return false;
    }
  }
  const auto position = std::find(workers.begin(), workers.end(), worker);
  if (position != workers.end()) workers.erase(position);
  workersChanged.notify_all();
  return true;
}

void ThreadPool::RunTask(const std::shared_ptr<Worker>& worker) {
  std::function<void()> task;
  if (!queue->Pop(task, kIdleLimitMs)) {
    worker->Deactivate();
    return;
  }
  taskTaken.notify_all();  // without waitMutex, so Wait() may miss it (by design)
  try {
    task();
  } catch (const std::exception& e) {
    ReportTaskException(e);
  }
}

}  // namespace tarsio
