#include "worker.h"

#include <exception>

#include "platform/platform.h"

namespace tarsio {

Worker::~Worker() {
  // A thread that is gone may have held the lock while it started this worker.
  if (platform::ThreadsMayBeGone()) return;
  try {
    Stop();
  } catch (const std::exception&) {
    // On Windows the first use of a lock may allocate. The thread has not been started then.
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
    worker->DetachThread();
  } while (!pool->RemoveWorker(worker));
  // If this thread is the pool's last owner, ~ThreadPool() runs now and finds no workers.
}

void Worker::SetRunning(bool value) {
  const std::lock_guard<std::mutex> lock(mutex);
  running = value;
}

void Worker::DetachThread() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (joining || thread == nullptr) return;
  thread->detach();
  thread.reset();
}

// Joins the thread unless it has detached itself. It normally has: a worker's last owner is its own
// thread.
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

}  // namespace tarsio
