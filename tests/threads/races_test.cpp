// Stress tests of queue, pool, latches and timers: a thousand rounds with random delays at every
// lock, counting each element, task, waiter and firing. The library and wrappers of the lock
// functions are compiled into this program.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
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

// ---- the wrappers ----

// One sequence for all threads, since thread-local variables may need a lock. Relaxed, so that it
// does not order threads that the code under test leaves unordered.
std::atomic<uint64_t> sequence{20240305};
std::atomic<uint64_t> disturbances{0};

// SplitMix64.
uint64_t Random() {
  uint64_t x = sequence.fetch_add(0x9E3779B97F4A7C15, std::memory_order_relaxed);
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
  return x ^ (x >> 31);
}

void Disturb() {
  const uint64_t random = Random();
  if (random % 8 != 0) return;
  disturbances.fetch_add(1, std::memory_order_relaxed);
  if (random % 256 == 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(random / 256 % 100));
  } else {
    std::this_thread::yield();
  }
}

template <typename... Arguments>
int Disturbed(int (*operation)(Arguments...), Arguments... arguments) {
  Disturb();
  const int result = operation(arguments...);
  Disturb();
  return result;
}

}  // namespace

// The linker's --wrap option redirects calls of NAME to __wrap_NAME; __real_NAME is the original.
// The thread libraries of both systems have these functions.
extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  return Disturbed(__real_pthread_mutex_lock, mutex);
}

int __real_pthread_mutex_trylock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
  return Disturbed(__real_pthread_mutex_trylock, mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  return Disturbed(__real_pthread_mutex_unlock, mutex);
}

int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  return Disturbed(__real_pthread_cond_wait, condition, mutex);
}

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
  return Disturbed(__real_pthread_cond_timedwait, condition, mutex, deadline);
}

int __real_pthread_cond_signal(pthread_cond_t* condition);
int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  return Disturbed(__real_pthread_cond_signal, condition);
}

int __real_pthread_cond_broadcast(pthread_cond_t* condition);
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
  return Disturbed(__real_pthread_cond_broadcast, condition);
}

}  // extern "C"

namespace {

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
  // `job` changes only when all threads have returned from it.
  void Work(size_t index) {
    std::unique_lock<std::mutex> lock(mutex);
    for (int seen = 0;;) {
      changed.wait(lock, [&] { return round != seen; });
      seen = round;
      lock.unlock();
      if (job) job(index);
      lock.lock();
      if (--left == 0) changed.notify_all();
      if (!job) return;
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
  ~Races() override { EXPECT_GT(disturbances, 1000U); }
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
  // Afterwards the timer does not fire. Stop() waits only for the action of a repeating timer.
  void Stop() {
    timer->Stop();
    if (!timer->GetLoop()) WaitForThePassInProgress();
    finalCount = fired->Count();
  }
  static void WaitForThePassInProgress() { TimerManager::GetInstance()->RemoveTimer(nullptr); }

  std::shared_ptr<Events> fired = std::make_shared<Events>();
  std::shared_ptr<TsTimer> timer;
  int finalCount = -1;  // of a timer that was stopped
};

// Each thread starts timers and stops every second one before, while or after it fires. A one-shot
// timer that is not stopped fires once.
TEST_F(Races, Timers) {
  constexpr size_t kThreads = 4;
  constexpr size_t kTimers = 6;
  for (const bool repeating : {false, true}) {
    std::array<std::vector<CountedTimer>, kThreads> timers;
    Crew crew(kThreads);
    crew.Run([&](size_t index) {
      std::mt19937 random(static_cast<unsigned>(index));
      for (int round = 0; round < kRounds / static_cast<int>(kThreads); ++round) {
        std::vector<CountedTimer>& mine = timers[index];
        for (size_t i = 0; i < kTimers; ++i) {
          mine.emplace_back(1 + random() % 3, repeating);
          mine.back().timer->Start();
        }
        if (round % 4 == 0) std::this_thread::sleep_for(milliseconds(random() % 4));
        for (size_t i = mine.size() - kTimers; i < mine.size(); ++i) {
          if (i % 2 != 0 && round % 4 == 0) {
            EXPECT_TRUE(mine[i].fired->Await());
          }
          if (i % 2 == 0 || repeating) mine[i].Stop();
        }
      }
    });
    std::this_thread::sleep_for(milliseconds(50));
    int stopped = 0;
    for (const auto& list : timers) {
      for (const CountedTimer& counted : list) {
        const bool wasStopped = counted.finalCount >= 0;
        if (!wasStopped) {
          ASSERT_TRUE(counted.fired->Await());
        }
        CountedTimer::WaitForThePassInProgress();
        ASSERT_EQ(counted.fired->Count(), wasStopped ? counted.finalCount : 1);
        ASSERT_TRUE(repeating || counted.finalCount <= 1);
        ASSERT_EQ(counted.timer.use_count(), 1) << "still queued";
        stopped += counted.finalCount == 0 ? 1 : 0;
      }
    }
    EXPECT_GT(stopped, 0);
  }
}

// Threads and actions start and stop the same timers. A start that races with a stop may leave a
// timer queued, but each start fires at most once, and all timers can be used afterwards.
TEST_F(Races, SharedTimers) {
  constexpr size_t kThreads = 4;
  std::array<CountedTimer, 2> timers = {CountedTimer(1, false), CountedTimer(1, false)};
  std::array<std::atomic<int>, 2> starts{};
  std::atomic<bool> end{false};
  const auto use = [&](size_t i, bool starting) {
    if (starting) ++starts[i];
    starting ? timers[i].timer->Start() : timers[i].timer->Stop();
  };
  for (size_t i = 0; i < timers.size(); ++i) {
    timers[i].timer->Init([&, i, fired = timers[i].fired] {
      fired->Add();
      if (!end) use(1 - i, fired->Count() % 2 == 0);
    });
  }
  Crew crew(kThreads);
  for (size_t round = 0; round < kRounds; ++round) {
    crew.Run([&](size_t index) {
      use(round % 2, index % 2 == 0);
      TsTimer& timer = *timers[round % 2].timer;
      timer.SetExpire(timer.GetExpire());
    });
  }
  end = true;
  std::this_thread::sleep_for(milliseconds(50));
  CountedTimer::WaitForThePassInProgress();
  for (size_t i = 0; i < timers.size(); ++i) {
    CountedTimer& counted = timers[i];
    counted.timer->SetState(true);
    counted.Stop();
    EXPECT_EQ(counted.timer.use_count(), 1);
    EXPECT_LE(counted.finalCount, starts[i]);
    counted.timer->Start();
    EXPECT_TRUE(counted.fired->Await(counted.finalCount + 1));
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(counted.fired->Count(), counted.finalCount + 1);
  }
}

}  // namespace
