// Runs empty tasks on a pool, from the first submission until the last has run, and the first task
// of a new pool.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/thread_pool.h"
#include "support/bench.h"
#include "support/gate.h"
#include "support/one_processor.h"

#ifdef TARSIO_BENCH_BOOST
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#endif
#ifdef TARSIO_BENCH_TBB
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/task_arena.h>
#endif

namespace tarsio_bench {

namespace {

class Ours {
 public:
  explicit Ours(size_t workers)
      : pool(std::make_shared<tarsio::ThreadPool>("bench", workers, 0, 1024)) {}
  template <typename Task>
  void Submit(Task task) {
    pool->SubmitTask(task);
  }

 private:
  // Its destructor waits until the idle workers have exited.
  const std::shared_ptr<tarsio::ThreadPool> pool;
};

// A pool without a library: threads, a queue of functions, and a condition variable.
class StdPool {
 public:
  explicit StdPool(size_t workers) {
    while (threads.size() < workers) threads.emplace_back([this] { Work(); });
  }
  StdPool(const StdPool&) = delete;
  StdPool& operator=(const StdPool&) = delete;
  ~StdPool() {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      closed = true;
    }
    changed.notify_all();
    for (std::thread& thread : threads) thread.join();
  }

  void Submit(std::function<void()> task) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      tasks.push_back(std::move(task));
    }
    changed.notify_one();
  }

 private:
  void Work() {
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
      changed.wait(lock, [this] { return closed || !tasks.empty(); });
      if (closed) return;
      const std::function<void()> task = std::move(tasks.front());
      tasks.pop_front();
      lock.unlock();
      task();
      lock.lock();
    }
  }

  std::mutex mutex;
  std::condition_variable changed;
  std::deque<std::function<void()>> tasks;
  bool closed = false;
  std::vector<std::thread> threads;
};

#ifdef TARSIO_BENCH_BOOST
class AsioPool {
 public:
  explicit AsioPool(size_t workers) : pool(workers) {}
  template <typename Task>
  void Submit(Task task) {
    boost::asio::post(pool, task);
  }

 private:
  boost::asio::thread_pool pool;
};
#endif

#ifdef TARSIO_BENCH_TBB
class TbbPool {
 public:
  explicit TbbPool(size_t workers)
      : threads(tbb::global_control::max_allowed_parallelism, workers + 1),
        arena(static_cast<int>(workers), 0) {}
  template <typename Task>
  void Submit(Task task) {
    arena.enqueue(task);
  }

 private:
  tbb::global_control threads;
  tbb::task_arena arena;
};
#endif

// The limit: no pool. Each task goes through a queue under a lock, and the submitter runs it.
class NoThreads {
 public:
  explicit NoThreads(size_t /*workers*/) {}
  void Submit(const std::function<void()>& task) {
    {
      const std::lock_guard<std::mutex> lock(mutex);
      tasks.push_back(task);
    }
    std::unique_lock<std::mutex> lock(mutex);
    const std::function<void()> taken = std::move(tasks.front());
    tasks.pop_front();
    lock.unlock();
    taken();
  }

 private:
  std::mutex mutex;
  std::deque<std::function<void()>> tasks;
};

template <typename Pool>
void RunTasks(benchmark::State& state, size_t workers) {
  constexpr int kTasks = 100000;
  const OneProcessor tied;
  Pool pool(workers);
  for (auto _ : state) {
    std::atomic<int> left{kTasks};
    tarsio_test::Gate done;
    for (int i = 0; i < kTasks; ++i) {
      pool.Submit([&left, &done] {
        if (left.fetch_sub(1, std::memory_order_relaxed) == 1) done.Open();
      });
    }
    done.Wait();
  }
  state.SetItemsProcessed(state.iterations() * kTasks);
}

// Returns the seconds from the construction of a pool until its first task runs.
template <typename Pool>
double FirstTaskSeconds() {
  using Clock = std::chrono::steady_clock;
  Clock::time_point ran;
  tarsio_test::Gate done;
  const auto begin = Clock::now();
  Pool pool(1);
  pool.Submit([&ran, &done] {
    ran = Clock::now();
    done.Open();
  });
  done.Wait();
  return std::chrono::duration<double>(ran - begin).count();
}

// Only the second pool counts. It may reuse the stack of the first one's thread, and our threads
// exit after an idle second.
template <typename Pool>
void RunFirstTask(benchmark::State& state) {
  FirstTaskSeconds<Pool>();
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  for (auto _ : state) state.SetIterationTime(FirstTaskSeconds<Pool>());
}

template <typename Pool>
void AddPool(const std::string& who) {
  Add("first_task_of_a_new_pool", who, RunFirstTask<Pool>)->UseManualTime()->Iterations(1);
  for (const size_t workers : Sizes{1, 2, 4}) {
    Add(Sized("run_empty_tasks", "workers", workers), who, [workers](benchmark::State& state) {
      RunTasks<Pool>(state, workers);
    })->UseRealTime();
  }
}

}  // namespace

void RegisterAll() {
  AddPool<Ours>("ours");
  AddPool<StdPool>("peer:std");
  AddPool<NoThreads>("limit:mutex");
#ifdef TARSIO_BENCH_BOOST
  AddPool<AsioPool>("peer:Asio");
#endif
#ifdef TARSIO_BENCH_TBB
  AddPool<TbbPool>("peer:oneTBB");
#endif
}

}  // namespace tarsio_bench
