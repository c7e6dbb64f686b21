#include "common/thread_pool.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "common/log.h"
#include "platform/platform.h"

namespace tarsio {

namespace {

constexpr int kIdleLimitMs = 1000;

// Hosts match on this line number: it belongs to the interface, so it is not __LINE__.
constexpr int kTaskExceptionLine = 196;

// A report that fails is lost: there may be no memory for it, or the host's sink may throw.
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

// One thread of a pool.
class Worker : public std::enable_shared_from_this<Worker> {
 public:
  Worker(std::string poolName, std::weak_ptr<ThreadPool> owner)
      : name(std::move(poolName)), pool(std::move(owner)) {}
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  virtual ~Worker();

  const std::string& Name() const { return name; }

  void Start();
  // After this, the worker leaves when the task that it runs has ended.
  void Deactivate() { SetRunning(false); }
  void Reactivate() { SetRunning(true); }

 private:
  // The thread owns its worker, and from its start on the pool: one that the host drops at once
  // still runs what was submitted.
  static void ThreadMain(const std::shared_ptr<Worker>& worker,
                         const std::shared_ptr<ThreadPool>& pool);
  void SetRunning(bool value);
  void LetGoOfThread();
  void Stop();

  const std::string name;
  std::shared_ptr<std::thread> thread;  // empty before Start() and once detached or joined
  std::mutex mutex;                     // guards thread; taken after the pool's workersMutex
  std::atomic<bool> running{false};
  std::atomic<bool> joining{false};
  std::weak_ptr<ThreadPool> pool;
};

Worker::~Worker() {
  try {
    Stop();
  } catch (const std::exception&) {
    // The first use of a lock may allocate on Windows. The thread has not been started then.
  }
}

void Worker::Start() {
  if (thread != nullptr) return;
  const std::lock_guard<std::mutex> lock(mutex);
  running = true;
  thread = std::make_shared<std::thread>(ThreadMain, shared_from_this(), pool.lock());
}

void Worker::ThreadMain(const std::shared_ptr<Worker>& worker,
                        const std::shared_ptr<ThreadPool>& pool) {
  do {
    while (worker->running) pool->RunTask(worker);
    worker->LetGoOfThread();
  } while (!pool->RemoveWorker(worker));
  // If this thread is the pool's last owner, its destructor runs now, and finds no workers.
}

void Worker::SetRunning(bool value) {
  const std::lock_guard<std::mutex> lock(mutex);
  running = value;
}

void Worker::LetGoOfThread() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (joining || thread == nullptr) return;
  thread->detach();
  thread.reset();
}

// Joins a thread that has not let go of itself. In normal operation there is none: the last owner
// of a worker is its own thread.
void Worker::Stop() {
  Deactivate();
  std::shared_ptr<std::thread> owned = thread;
  std::unique_lock<std::mutex> lock(mutex);
  if (owned == nullptr) return;
  thread.reset();
  joining = true;
  lock.unlock();
  owned->join();
  lock.lock();
  owned.reset();
  joining = false;
}

ThreadPool::ThreadPool(std::string poolName, uint64_t threadLimit, uint64_t reserved,
                       uint64_t taskCapacity)
    : name(std::move(poolName)),
      maxThreadNumber(threadLimit),
      reservedNumber(reserved),
      queueCapacity(taskCapacity),
      queue(std::make_shared<BlockingQueue<std::function<void()>>>(queueCapacity)) {
  static_cast<void>(reservedNumber);  // kept for the host's sake; nothing reads it
}

ThreadPool::~ThreadPool() {
  // Where other threads are gone, one may have held a lock. No worker is left, for each owns the
  // pool, and the members' destructors discard the tasks.
  if (platform::ProcessIsEnding() || platform::ForkCount() > 0) return;
  try {
    Shutdown(SHUTDOWN_NOW);
  } catch (const std::exception&) {
    // The first use of a lock may allocate on Windows.
  }
}

std::string ThreadPool::GetName() const { return name; }

void ThreadPool::SetName(const std::string& newName) { name = newName; }

uint64_t ThreadPool::GetPendingTaskNumber() {
  const std::lock_guard<std::mutex> lock(workersMutex);
  return queue->Size();
}

uint64_t ThreadPool::GetRunningThreadNumber() {
  const std::lock_guard<std::mutex> lock(workersMutex);
  return runningThreadNumber.load(std::memory_order_relaxed);
}

bool ThreadPool::SubmitTask(std::function<void()>& task) {
  if (platform::ProcessIsEnding()) return false;
  platform::PinLibrary();  // for the workers; never under a lock
  // After a thread could not be started, the queue may be full with no worker to empty it.
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

// One worker more, unless as many live as may.
bool ThreadPool::AddWorker() {
  if (runningThreadNumber.load(std::memory_order_relaxed) >= maxThreadNumber) return true;
  const std::lock_guard<std::mutex> lock(workersMutex);
  if (runningThreadNumber.load(std::memory_order_relaxed) >= maxThreadNumber) return true;
  workers.push_back(std::make_shared<Worker>(name, Owned(this)));
  StartWorker();
  return true;
}

// Under workersMutex. Starts the worker that was listed last; if its thread cannot be started, the
// worker leaves the list again.
void ThreadPool::StartWorker() {
  try {
    workers.back()->Start();
  } catch (...) {
    workers.pop_back();
    throw;
  }
  runningThreadNumber.fetch_add(1, std::memory_order_relaxed);
}

// Takes a retiring worker out of the pool. False if it has to stay, having been put back to work.
bool ThreadPool::RemoveWorker(const std::shared_ptr<Worker>& worker) {
  const std::lock_guard<std::mutex> lock(workersMutex);
  // Counted out before the look at the queue: a submission that this look misses then sees that a
  // worker may be started, and one that saw the limit reached has its task seen here.
  runningThreadNumber.fetch_sub(1, std::memory_order_relaxed);
  const bool taskLeft = queue->Size() > 0;
  if (taskLeft) {
    try {
      // The worker's own name: the host may be changing the pool's.
      workers.push_back(std::make_shared<Worker>(worker->Name(), shared_from_this()));
      StartWorker();
    } catch (const std::exception&) {
      // No successor can be had: the task is this worker's.
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
  taskTaken.notify_all();  // without waitMutex, deliberately: Wait() may miss it
  try {
    task();
  } catch (const std::exception& e) {
    ReportTaskException(e);
  }
}

}  // namespace tarsio
