// Thousands of threads and timers at once. Everything is counted, nothing is timed.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "common/blocking_queue.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/gate.h"

namespace {

using component::TsTimer;
using tarsio_test::Gate;

// The first 1,000 workers cannot go on before the last of them has started.
TEST(Load, PoolOf1000) {
  constexpr int kWorkers = 1000;
  const auto pool = std::make_shared<tarsio::ThreadPool>("load", kWorkers, 0, kWorkers);
  std::atomic<int> started{0};
  Gate all;
  Gate go;
  for (int i = 0; i < kWorkers; ++i) {
    ASSERT_TRUE(pool->SubmitTask([&] {
      if (++started == kWorkers) all.Open();
      go.Wait();
    }));
  }
  EXPECT_TRUE(all.WaitFor());
  EXPECT_EQ(pool->GetRunningThreadNumber(), static_cast<uint64_t>(kWorkers));
  go.Open();
  pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_DRAIN);
  EXPECT_EQ(started, kWorkers);
}

TEST(Load, QueueOf1000) {
  constexpr int kPairs = 500;
  constexpr int kItems = 20;
  tarsio::BlockingQueue<int> queue(16);
  Gate go;
  std::atomic<int64_t> sum{0};
  std::vector<std::thread> threads;
  for (int pair = 0; pair < kPairs; ++pair) {
    threads.emplace_back([&, pair] {
      go.Wait();
      for (int i = 0; i < kItems; ++i) EXPECT_TRUE(queue.Push(pair * kItems + i, 0));
    });
    threads.emplace_back([&] {
      go.Wait();
      for (int i = 0; i < kItems; ++i) {
        int item = 0;
        EXPECT_TRUE(queue.Pop(item, 0));
        sum += item;
      }
    });
  }
  go.Open();
  for (std::thread& thread : threads) thread.join();
  constexpr int64_t kTotal = int64_t{kPairs} * kItems;
  EXPECT_EQ(sum, kTotal * (kTotal - 1) / 2);
  EXPECT_EQ(queue.Size(), 0U);
}

TEST(Load, Timers10000) {
  constexpr int kTimers = 10000;
  std::atomic<int> fired{0};
  Gate all;
  std::vector<std::shared_ptr<TsTimer>> timers;
  for (int i = 0; i < kTimers; ++i) {
    timers.push_back(std::make_shared<TsTimer>(static_cast<unsigned long long>(1 + i % 50), false));
    timers.back()->Init([&] {
      if (++fired == kTimers) all.Open();
    });
  }
  for (const auto& timer : timers) timer->Start();
  EXPECT_TRUE(all.WaitFor());
  for (const auto& timer : timers) timer->Stop();
  EXPECT_EQ(fired, kTimers);
}

}  // namespace
