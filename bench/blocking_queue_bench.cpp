// Passes items from producers to consumers through a bounded queue.

#include <algorithm>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/blocking_queue.h"
#include "support/bench.h"
#include "support/gate.h"
#include "support/memory.h"
#include "support/one_processor.h"

#ifdef TARSIO_BENCH_ABSEIL
#include <absl/synchronization/mutex.h>
#endif
#ifdef TARSIO_BENCH_BOOST
#include <boost/thread/concurrent_queues/sync_bounded_queue.hpp>
#endif
#ifdef TARSIO_BENCH_TBB
#include <oneapi/tbb/concurrent_queue.h>
#endif

namespace tarsio_bench {

namespace {

template <typename Item>
class Ours {
 public:
  explicit Ours(size_t capacity) : queue(capacity) {}
  void Push(const Item& item) { static_cast<void>(queue.Push(item, 0)); }
  Item Pop() {
    Item item{};
    static_cast<void>(queue.Pop(item, 0));
    return item;
  }

 private:
  tarsio::BlockingQueue<Item> queue;
};

#ifdef TARSIO_BENCH_ABSEIL
class AbseilQueue {
 public:
  explicit AbseilQueue(size_t limit) : capacity(limit) {}
  void Push(int item) {
    const absl::MutexLock lock(&mutex, absl::Condition(this, &AbseilQueue::HasRoom));
    items.push_back(item);
  }
  int Pop() {
    const absl::MutexLock lock(&mutex, absl::Condition(this, &AbseilQueue::HasItem));
    const int item = items.front();
    items.pop_front();
    return item;
  }

 private:
  bool HasRoom() const { return items.size() < capacity; }
  bool HasItem() const { return !items.empty(); }

  absl::Mutex mutex;
  std::deque<int> items;
  const size_t capacity;
};
#endif

#ifdef TARSIO_BENCH_BOOST
template <typename Item>
class BoostQueue {
 public:
  explicit BoostQueue(size_t capacity) : queue(capacity) {}
  void Push(const Item& item) { queue.push(item); }
  Item Pop() { return queue.pull(); }

 private:
  boost::sync_bounded_queue<Item> queue;
};
#endif

#ifdef TARSIO_BENCH_TBB
template <typename Item>
class TbbQueue {
 public:
  explicit TbbQueue(size_t capacity) { queue.set_capacity(static_cast<ptrdiff_t>(capacity)); }
  void Push(const Item& item) { queue.push(item); }
  Item Pop() {
    Item item{};
    queue.pop(item);
    return item;
  }

 private:
  tbb::concurrent_bounded_queue<Item> queue;
};
#endif

// The limit: a queue under a lock that never waits.
template <typename Item>
class DequeUnderMutex {
 public:
  explicit DequeUnderMutex(size_t /*capacity*/) {}
  void Push(const Item& item) {
    const std::lock_guard<std::mutex> lock(mutex);
    items.push_back(item);
  }
  Item Pop() {
    const std::lock_guard<std::mutex> lock(mutex);
    const Item item = items.front();
    items.pop_front();
    return item;
  }

 private:
  std::mutex mutex;
  std::deque<Item> items;
};

// Returns the seconds that `pairs` producers and as many consumers need to transfer `items` each,
// on one processor.
template <typename Queue>
double TransferSeconds(size_t capacity, size_t pairs, int items) {
  const OneProcessor tied;
  Queue queue(capacity);
  tarsio_test::Gate gate;
  std::vector<std::thread> threads;
  for (size_t pair = 0; pair < pairs; ++pair) {
    threads.emplace_back([&] {
      gate.Wait();
      for (int i = 0; i < items; ++i) queue.Push(i);
    });
    threads.emplace_back([&] {
      gate.Wait();
      for (int i = 0; i < items; ++i) benchmark::DoNotOptimize(queue.Pop());
    });
  }
  const auto begin = std::chrono::steady_clock::now();
  gate.Open();
  for (std::thread& thread : threads) thread.join();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// The same without waiting: one thread fills and empties the queue.
template <typename Queue>
double OneThreadSeconds(size_t capacity, int items) {
  Queue queue(capacity);
  const auto begin = std::chrono::steady_clock::now();
  for (int done = 0; done < items;) {
    const int round = std::min(static_cast<int>(capacity), items - done);
    for (int i = 0; i < round; ++i) queue.Push(i);
    for (int i = 0; i < round; ++i) benchmark::DoNotOptimize(queue.Pop());
    done += round;
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Calls `seconds` with the capacity, the number of pairs and the items per pair.
template <typename Seconds>
void AddTransfer(const std::string& who, Seconds seconds) {
  constexpr int kItems = 60000;
  for (const size_t capacity : Sizes{16, 1024}) {
    for (const size_t pairs : Sizes{1, 2, 4}) {
      Add(Sized(Sized("transfer_between_threads", "capacity", capacity), "pairs", pairs), who,
          [capacity, pairs, seconds](benchmark::State& state) {
            const int each = kItems / static_cast<int>(pairs);
            for (auto _ : state) state.SetIterationTime(seconds(capacity, pairs, each));
            state.SetItemsProcessed(state.iterations() * kItems);
          })
          ->UseManualTime();
    }
  }
}

template <typename Queue>
void AddPushPop(const std::string& who) {
  const auto queue = std::make_shared<Queue>(1024);
  AddCall("push_and_pop", who, [queue] {
    queue->Push(1);
    return queue->Pop();
  });
}

template <typename Queue>
void AddQueue(const std::string& who) {
  AddPushPop<Queue>(who);
  AddTransfer(who, TransferSeconds<Queue>);
}

template <template <typename> class Queue>
void AddTaskMemory(const std::string& who) {
  using Task = std::function<void()>;
  AddMemory("memory_of_1,000,000_queued_tasks", who, [] {
    constexpr size_t kTasks = 1000000;
    Queue<Task> queue(kTasks);
    for (size_t i = 0; i < kTasks; ++i) queue.Push([] {});
  });
}

}  // namespace

void RegisterAll() {
  AddQueue<Ours<int>>("ours");
  AddTaskMemory<Ours>("ours");
#ifdef TARSIO_BENCH_ABSEIL
  AddQueue<AbseilQueue>("peer:Abseil");
#endif
#ifdef TARSIO_BENCH_BOOST
  AddQueue<BoostQueue<int>>("peer:Boost");
  AddTaskMemory<BoostQueue>("peer:Boost");
#endif
#ifdef TARSIO_BENCH_TBB
  AddQueue<TbbQueue<int>>("peer:oneTBB");
  AddTaskMemory<TbbQueue>("peer:oneTBB");
#endif
  AddPushPop<DequeUnderMutex<int>>("limit:mutex");
  AddTaskMemory<DequeUnderMutex>("limit:mutex");
  AddTransfer("limit:mutex", [](size_t capacity, size_t pairs, int items) {
    return OneThreadSeconds<DequeUnderMutex<int>>(capacity, static_cast<int>(pairs) * items);
  });
}

}  // namespace tarsio_bench
