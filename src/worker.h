#ifndef TARSIO_COMMON_SRC_WORKER_H_
#define TARSIO_COMMON_SRC_WORKER_H_

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "common/thread_pool.h"

namespace tarsio {

// One thread of a ThreadPool. It runs tasks until it finds none for a second, then removes itself
// from the pool.
class Worker : public std::enable_shared_from_this<Worker> {
 public:
  Worker(std::string poolName, std::weak_ptr<ThreadPool> owner)
      : name(std::move(poolName)), pool(std::move(owner)) {}
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  virtual ~Worker();

  const std::string& Name() const { return name; }

  void Start();
  // The worker retires after its current task.
  void Deactivate() { SetRunning(false); }
  void Reactivate() { SetRunning(true); }

 private:
  // The thread owns its worker and the pool, so a pool that the host drops still runs its tasks.
  static void ThreadMain(const std::shared_ptr<Worker>& worker,
                         const std::shared_ptr<ThreadPool>& pool);
  void SetRunning(bool value);
  void DetachThread();
  void Stop();

  const std::string name;
  std::shared_ptr<std::thread> thread;  // empty before Start() and once detached or joined
  std::mutex mutex;                     // guards thread; taken after the pool's workersMutex
  std::atomic<bool> running{false};
  std::atomic<bool> joining{false};
  std::weak_ptr<ThreadPool> pool;
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_WORKER_H_
