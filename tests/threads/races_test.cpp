// Stress tests of queue, pool, latches and timers: a thousand rounds with random delays at every
// lock, counting each element, task, waiter and firing. The library and wrappers of the lock
// functions are compiled into this program.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/log.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/events.h"
#include "support/schedule_stress.h"

namespace {

using component::TimerManager;
using component::TsTimer;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using tarsio::BlockingQueue;
using tarsio::CountDownLatch;
using tarsio::CountOutWake;
using tarsio::ThreadPool;
using tarsio_test::Events;

constexpr int kRounds = 1000;
constexpr auto kMethodWithoutName = static_cast<ThreadPool::SHUTDOWN_METHOD>(7);

// Threads that run one function at a time concurrently.
class Crew {
 public:
  explicit Crew(size_t size) {
    for (size_t i = 0; i < size; ++i) threads.emplace_back([this, i] { Work(i); });
  }
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;
  ~Crew() {
    Run(nullptr);
    for (std::thread& thread : threads) thread.join();
  }

  // Calls `next` with each thread's index on that thread and returns when all calls have returned.
  void Run(const std::function<void(size_t)>& next) {
    std::unique_lock<std::mutex> lock(mutex);
    job = next;
    left = threads.size();
    ++round;
    changed.notify_all();
    changed.wait(lock, [this] { return left == 0; });
  }

 private:
  void Work(size_t index) {
    for (int seen = 0;;) {
      std::function<void(size_t)> mine;
      {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return round != seen; });
        seen = round;
        mine = job;
      }
      if (mine) mine(index);
      {
        const std::lock_guard<std::mutex> lock(mutex);
        if (--left == 0) changed.notify_all();
      }
      if (!mine) return;
    }
  }

  std::mutex mutex;  // guards the members below
  std::condition_variable changed;
  std::function<void(size_t)> job;
  size_t left = 0;
  int round = 0;
  std::vector<std::thread> threads;
};

class Races : public testing::Test {
 protected:
  ~Races() override { EXPECT_GT(tarsio_test::ScheduleDisturbances(), 1000U); }
};

// ---- queue ----

// Timeouts of every kind; calls that time out are repeated.
int AnyTimeout(std::mt19937& random) {
  constexpr int kTimeouts[] = {0, -1, 1, 1000};
  return kTimeouts[random() % 4];
}

TEST_F(Races, QueueOrder) {
  constexpr size_t kProducers = 3;
  constexpr size_t kConsumers = 3;
  constexpr size_t kPerProducer = 12;
  using Element = std::pair<size_t, size_t>;  // the producer, and a number
  Crew crew(kProducers + kConsumers);
  for (int round = 0; round < kRounds; ++round) {
    BlockingQueue<Element> queue(1 + static_cast<uint64_t>(round) % 4);
    std::array<std::vector<Element>, kConsumers> taken;
    std::atomic<size_t> claimed{0};
    crew.Run([&](size_t index) {
      std::mt19937 random(static_cast<unsigned>(round * 8) + static_cast<unsigned>(index));
      if (index < kProducers) {
        for (size_t i = 1; i <= kPerProducer; ++i) {
          while (!queue.Push({index, i}, AnyTimeout(random))) std::this_thread::yield();
        }
        return;
      }
      while (claimed++ < kProducers * kPerProducer) {  // one Pop() each, so that none waits forever
        Element element{};
        while (!queue.Pop(element, AnyTimeout(random))) std::this_thread::yield();
        taken[index - kProducers].push_back(element);
      }
    });
    std::vector<Element> all;
    for (const auto& list : taken) {
      std::array<size_t, kProducers> last{};
      for (const auto& [producer, number] : list) {
        ASSERT_GT(number, last[producer]) << "out of order, round " << round;
        last[producer] = number;
        all.emplace_back(producer, number);
      }
    }
    std::sort(all.begin(), all.end());
    ASSERT_EQ(all.size(), kProducers * kPerProducer);
    for (size_t i = 0; i < all.size(); ++i) {
      ASSERT_EQ(all[i], Element(i / kPerProducer, 1 + i % kPerProducer));
    }
    ASSERT_EQ(queue.Size(), 0U);
  }
}

// Every element was popped or discarded; after Close() no element is pushed or popped.
TEST_F(Races, QueueClose) {
  constexpr size_t kProducers = 2;
  constexpr size_t kConsumers = 2;
  Crew crew(kProducers + kConsumers + 1);
  uint64_t discarded = 0;
  for (int round = 0; round < kRounds; ++round) {
    const auto token = std::make_shared<int>(0);
    BlockingQueue<std::shared_ptr<int>> queue(3);
    std::atomic<uint64_t> pushed{0};
    std::atomic<uint64_t> popped{0};
    std::atomic<bool> closed{false};
    crew.Run([&](size_t index) {
      if (index == kProducers + kConsumers) {
        for (int i = 0; i < round % 16; ++i) std::this_thread::yield();
        queue.Close();
        closed = true;
        return;
      }
      for (int i = 0; i < 10; ++i) {
        const bool wasClosed = closed;
        const int timeoutMs = i % 5 == 0 ? 1 : -1;
        bool success = false;
        if (index < kProducers) {
          success = queue.Push(token, timeoutMs);
          pushed += success ? 1 : 0;
        } else {
          std::shared_ptr<int> item;
          success = queue.Pop(item, timeoutMs);
          popped += success ? 1 : 0;
          EXPECT_EQ(item != nullptr, success);
        }
        EXPECT_FALSE(wasClosed && success);
      }
    });
    ASSERT_LE(popped, pushed);
    discarded += pushed - popped;
    ASSERT_EQ(queue.Size(), 0U);
    ASSERT_EQ(token.use_count(), 1) << "discarded elements are destroyed";
  }
  EXPECT_GT(discarded, 0U);
}

// ---- pool ----

TEST_F(Races, PoolTasks) {
  constexpr size_t kHosts = 3;
  constexpr size_t kPerHost = 8;
  constexpr int kRoundsPerPool = 100;
  Crew crew(kHosts);
  for (int first = 0; first < kRounds; first += kRoundsPerPool) {
    const auto pool = std::make_shared<ThreadPool>("races", 3U, 0U, 2U);
    for (int round = first; round < first + kRoundsPerPool; ++round) {
      std::array<std::atomic<int>, kHosts * kPerHost> runs{};
      Events done;
      crew.Run([&](size_t host) {
        for (size_t i = 0; i < kPerHost; ++i) {
          std::function<void()> task = [&runs, &done, index = host * kPerHost + i] {
            ++runs[index];
            done.Add();
          };
          ASSERT_TRUE(pool->SubmitTask(task));
        }
      });
      ASSERT_TRUE(done.Await(kHosts * kPerHost));
      for (const auto& count : runs) ASSERT_EQ(count, 1);
      ASSERT_EQ(pool->GetPendingTaskNumber(), 0U);
      ASSERT_LE(pool->GetRunningThreadNumber(), 3U);
    }
  }
}

// Submits tasks just when a worker retires, to many pools at once.
TEST_F(Races, PoolRetire) {
  constexpr int kBatches = 4;
  constexpr size_t kPools = 64;
  constexpr size_t kHosts = 4;
  Crew crew(kHosts);
  for (int batch = 0; batch < kBatches; ++batch) {
    std::vector<std::shared_ptr<ThreadPool>> pools;
    std::vector<std::atomic<int>> runs(kPools);
    Events done;
    for (size_t i = 0; i < kPools; ++i) {
      pools.push_back(std::make_shared<ThreadPool>("retiring", 1U, 0U, 4U));
    }
    const auto submit = [&](size_t i) {
      pools[i]->SubmitTask([&, i] {
        ++runs[i];
        done.Add();
      });
    };
    std::vector<steady_clock::time_point> idleSince(kPools);
    for (size_t i = 0; i < kPools; ++i) {
      submit(i);
      ASSERT_TRUE(done.Await(static_cast<int>(i) + 1));
      idleSince[i] = steady_clock::now();
    }
    crew.Run([&](size_t host) {
      for (size_t i = host; i < kPools; i += kHosts) {
        std::this_thread::sleep_until(idleSince[i] + milliseconds(999) +
                                      std::chrono::microseconds(i * 50));
        submit(i);
      }
    });
    ASSERT_TRUE(done.Await(2 * kPools)) << "a task did not run";
    for (const auto& count : runs) ASSERT_EQ(count, 2);
    // The pools are dropped here; their idle workers own them until they retire.
  }
}

TEST_F(Races, PoolDrop) {
  constexpr int kPools = 200;
  constexpr int kTasks = 5;
  const auto done = std::make_shared<Events>();
  for (int i = 0; i < kPools; ++i) {
    const auto pool = std::make_shared<ThreadPool>("dropped", 2U, 0U, 10U);
    for (int task = 0; task < kTasks; ++task) pool->SubmitTask([done] { done->Add(); });
  }
  ASSERT_TRUE(done->Await(kPools * kTasks));
  const auto last = std::make_shared<ThreadPool>("last", 1U, 0U, 1U);
  last->SubmitTask([] {});
  last->Shutdown(kMethodWithoutName);  // by then the other pools' workers have timed out, too
  EXPECT_EQ(done->Count(), kPools * kTasks);
}

// ---- latches ----

TEST_F(Races, CountDownLatch) {
  constexpr size_t kWaiters = 3;
  constexpr unsigned kSteps = 3;
  Crew crew(kWaiters + kSteps);
  for (int round = 0; round < kRounds; ++round) {
    CountDownLatch latch(kSteps);
    std::atomic<unsigned> steps{0};
    crew.Run([&](size_t index) {
      if (index < kWaiters) {
        while (latch.GetCount() != 0) latch.Wait(0);  // any wake-up ends the wait
        EXPECT_EQ(steps, kSteps);
      } else {
        ++steps;
        latch.CountDown();
      }
    });
    ASSERT_EQ(latch.GetCount(), 0U);
  }
}

TEST_F(Races, CountOutWake) {
  constexpr size_t kWaiters = 3;
  constexpr unsigned kInitial = 5;
  Crew crew(kWaiters + 2);
  CountOutWake wake(kInitial);
  std::atomic<int> waits{0};
  for (int round = 0; round < kRounds; ++round) {
    std::atomic<size_t> returned{0};
    crew.Run([&](size_t index) {
      if (index < kWaiters) {
        wake.Wait(index == 0 ? 50000 : 0);
        ++waits;
        ++returned;
        return;
      }
      // A wake-up without a waiter is lost, so repeat until all threads have returned.
      while (returned != kWaiters) {
        const unsigned count = wake.GetCount();
        EXPECT_TRUE(count >= kInitial && count <= kInitial + kWaiters);
        if (index == kWaiters) {
          wake.CountOut();
        } else if (round % 2 == 0) {
          wake.CountAll();
        }
        std::this_thread::yield();
      }
    });
    ASSERT_EQ(wake.GetCount(), kInitial);
  }
  EXPECT_EQ(waits, kRounds * static_cast<int>(kWaiters));
}

// ---- timers ----

struct CountedTimer {
  CountedTimer(unsigned long long timeoutMs, bool repeating)
      : timer(std::make_shared<TsTimer>(timeoutMs, repeating)) {
    timer->Init([fired = fired] { fired->Add(); });
  }

  std::shared_ptr<Events> fired = std::make_shared<Events>();
  std::shared_ptr<TsTimer> timer;
  int finalCount = -1;  // of a timer that was stopped
};

void WaitForThePassInProgress() { TimerManager::GetInstance()->RemoveTimer(nullptr); }

TEST_F(Races, OneShotTimers) {
  constexpr size_t kThreads = 4;
  constexpr size_t kTimers = 6;
  std::array<std::vector<CountedTimer>, kThreads> timers;
  Crew crew(kThreads);
  crew.Run([&](size_t index) {
    std::mt19937 random(static_cast<unsigned>(index));
    for (int round = 0; round < kRounds / static_cast<int>(kThreads); ++round) {
      for (size_t i = 0; i < kTimers; ++i) {
        timers[index].emplace_back(1 + random() % 3, false);
        timers[index].back().timer->Start();
      }
      if (round % 4 == 0) std::this_thread::sleep_for(milliseconds(random() % 4));
      // Stops every second timer before, while or after it fires.
      for (size_t i = timers[index].size() - kTimers; i < timers[index].size(); i += 2) {
        timers[index][i].timer->Stop();
        WaitForThePassInProgress();
        timers[index][i].finalCount = timers[index][i].fired->Count();
      }
    }
  });
  int stopped = 0;
  size_t total = 0;
  for (const auto& list : timers) {
    total += list.size();
    for (const CountedTimer& counted : list) {
      const bool wasStopped = counted.finalCount >= 0;
      if (!wasStopped) {
        ASSERT_TRUE(counted.fired->Await());
      }
      WaitForThePassInProgress();
      ASSERT_LE(counted.fired->Count(), 1);
      if (!wasStopped) continue;
      ASSERT_EQ(counted.fired->Count(), counted.finalCount);
      stopped += 1 - counted.finalCount;
    }
  }
  EXPECT_EQ(total, kRounds * kTimers);
  EXPECT_GT(stopped, 0);
}

TEST_F(Races, RepeatingTimers) {
  constexpr size_t kThreads = 4;
  std::array<std::vector<CountedTimer>, kThreads> timers;
  std::atomic<int> firings{0};
  Crew crew(kThreads);
  crew.Run([&](size_t index) {
    for (int round = 0; round < kRounds / static_cast<int>(kThreads); ++round) {
      timers[index].emplace_back(1, true);
      CountedTimer& counted = timers[index].back();
      counted.timer->Start();
      if (round % 4 == 0) {
        ASSERT_TRUE(counted.fired->Await());
      }
      counted.timer->Stop();
      counted.finalCount = counted.fired->Count();
      firings += counted.finalCount;
    }
  });
  std::this_thread::sleep_for(milliseconds(50));
  WaitForThePassInProgress();
  for (const auto& list : timers) {
    for (const CountedTimer& counted : list) {
      ASSERT_EQ(counted.fired->Count(), counted.finalCount);
      ASSERT_EQ(counted.timer.use_count(), 1) << "still queued";
    }
  }
  EXPECT_GE(firings, kRounds / 4);
}

// A start that races with a stop may leave the timer queued, but each start fires at most once.
TEST_F(Races, SharedTimer) {
  constexpr size_t kThreads = 4;
  const CountedTimer counted(1, false);
  std::atomic<int> starts{0};
  Crew crew(kThreads);
  for (int round = 0; round < kRounds; ++round) {
    crew.Run([&](size_t index) {
      starts += index % 2 == 0 ? 1 : 0;
      index % 2 == 0 ? counted.timer->Start() : counted.timer->Stop();
    });
  }
  std::this_thread::sleep_for(milliseconds(50));
  counted.timer->Stop();
  WaitForThePassInProgress();
  const int before = counted.fired->Count();
  EXPECT_LE(before, starts);
  counted.timer->Start();
  EXPECT_TRUE(counted.fired->Await(before + 1));
  std::this_thread::sleep_for(milliseconds(20));
  EXPECT_EQ(counted.fired->Count(), before + 1);
}

}  // namespace
