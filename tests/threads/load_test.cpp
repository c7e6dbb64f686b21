// Thousands of threads and timers at once. Everything is counted, nothing is timed.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "common/blocking_queue.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/events.h"
#include "support/gate.h"

namespace {

using tarsio_test::Events;
using tarsio_test::Gate;

// The first 1,000 workers cannot go on before the last of them has started.
TEST(Load, PoolOf1000) {
  constexpr int kWorkers = 1000;
  const auto pool = std::make_shared<tarsio::ThreadPool>("load", kWorkers, 0, kWorkers);
  Events started;
  Gate go;
  for (int i = 0; i < kWorkers; ++i) {
    ASSERT_TRUE(pool->SubmitTask([&] {
      started.Add();
      go.Wait();
    }));
  }
  EXPECT_TRUE(started.Await(kWorkers));
  EXPECT_EQ(pool->GetRunningThreadNumber(), static_cast<uint64_t>(kWorkers));
  go.Open();
  pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_DRAIN);
  EXPECT_EQ(started.Count(), kWorkers);
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
  constexpr unsigned kTimers = 10000;
  const auto fired = std::make_shared<Events>();
  for (unsigned i = 0; i < kTimers; ++i) {
    const auto timer = std::make_shared<component::TsTimer>(1 + i % 50, false);
    timer->Init([fired] { fired->Add(); });
    timer->Start();
  }
  EXPECT_TRUE(fired->Await(kTimers));
  EXPECT_EQ(fired->Count(), static_cast<int>(kTimers));
}

}  // namespace
