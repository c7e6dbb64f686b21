// Timers on the real clock. The rules that need exact times are in timer_manager_test.cpp.

#include "common/timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/events.h"
#include "support/recording_logger.h"

namespace {

using component::Timer;
using component::TimerManager;
using component::TsTimer;
using tarsio_test::Events;
using testing::AllOf;
using testing::Ge;
using testing::IsEmpty;
using testing::Le;

using Milliseconds = unsigned long long;

constexpr Milliseconds kNever = std::numeric_limits<Milliseconds>::max();
constexpr Milliseconds kLong = 3600000;  // a timer that does not fire while a test runs
constexpr bool kOnce = false;
constexpr bool kRepeating = true;

Milliseconds Now() { return TimerManager::GetInstance()->GetCurrentMillisecs(); }

// Removes a timer from the queue at the end of a test, however it is marked by then, and waits for
// its action to return. Declare it after everything that the action uses.
class TestTimer {
 public:
  TestTimer(Milliseconds timeoutMs, bool repeating, std::function<void()> action = nullptr)
      : timer(std::make_shared<TsTimer>(timeoutMs, repeating)) {
    timer->Init(std::move(action));
  }
  TestTimer(const TestTimer&) = delete;
  TestTimer& operator=(const TestTimer&) = delete;
  ~TestTimer() { StopForSure(); }

  TsTimer* operator->() const { return timer.get(); }
  // Returns whether no entry is left in the queue.
  bool StopForSure() const {
    timer->SetState(true);
    timer->Stop();
    return timer.use_count() == 1;
  }

 private:
  const std::shared_ptr<TsTimer> timer;
};

// ---- declarations ----

static_assert(std::is_abstract_v<Timer>);
static_assert(std::has_virtual_destructor_v<Timer>);
static_assert(std::is_base_of_v<std::enable_shared_from_this<Timer>, Timer>);
static_assert(std::is_convertible_v<TsTimer*, Timer*>, "publicly derived");
static_assert(!std::is_copy_constructible_v<TsTimer>);
using ManagerCall = void (TimerManager::*)(std::shared_ptr<Timer>);  // by value
static_assert(std::is_same_v<decltype(&TimerManager::AddTimer), ManagerCall>);
static_assert(std::is_same_v<decltype(&TimerManager::RemoveTimer), ManagerCall>);
static_assert(std::is_same_v<decltype(&TimerManager::ResetTimer), ManagerCall>);

TEST(Timer, Arguments) {
  for (const Milliseconds timeout : {0ULL, 1ULL, 10ULL, 1ULL << 32, kNever - 1, kNever}) {
    for (const bool loop : {kOnce, kRepeating}) {
      SCOPED_TRACE(std::to_string(timeout) + (loop ? " repeating" : " once"));
      const TestTimer timer(timeout, loop);
      for (const Milliseconds expire : {0ULL, 1ULL, 1ULL << 63, kNever}) {
        timer->SetExpire(expire);
        EXPECT_EQ(timer->GetExpire(), expire);
      }
      timer->Start();
      timer->Stop();
      EXPECT_EQ(timer->GetTimeout(), timeout);
      EXPECT_EQ(timer->GetLoop(), loop);
    }
  }
}

TEST(TimerManager, WallClock) {
  const auto systemClock = [] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  // The runtime's clock may advance only at each timer interrupt, every 15.6 ms.
  constexpr int64_t kStep = 20;
  for (int i = 0; i < 100; ++i) {
    const int64_t before = systemClock();
    const auto now = static_cast<int64_t>(Now());
    const int64_t after = systemClock();
    ASSERT_THAT(now, AllOf(Ge(before - kStep), Le(after + kStep)));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// ---- firing ----

TEST(Timer, FiresOnce) {
  struct Shot {
    Milliseconds startedAt = 0;
    std::atomic<Milliseconds> firedAt{0};
    Events fired;
  };
  std::mt19937_64 random(std::random_device{}());
  std::vector<Shot> shots(60);
  std::vector<std::unique_ptr<TestTimer>> timers;
  for (Shot& shot : shots) {
    timers.push_back(std::make_unique<TestTimer>(1 + random() % 40, kOnce, [&shot] {
      shot.firedAt = Now();
      shot.fired.Add();
    }));
    // At a random phase of the timer thread.
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));
    shot.startedAt = Now();
    (*timers.back())->Start();
  }
  Milliseconds least = kNever;
  for (size_t i = 0; i < shots.size(); ++i) {
    TestTimer& timer = *timers[i];
    ASSERT_TRUE(shots[i].fired.Await());
    ASSERT_GE(timer->GetExpire(), shots[i].startedAt + timer->GetTimeout());
    ASSERT_GE(shots[i].firedAt, timer->GetExpire());
    least = std::min(least, shots[i].firedAt - timer->GetExpire());
  }
  // Passes are 5 ms apart, so some of the timers fires on time even on a busy machine.
  EXPECT_LE(least, 15U);
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  for (size_t i = 0; i < shots.size(); ++i) {
    EXPECT_TRUE(timers[i]->StopForSure());
    EXPECT_EQ(shots[i].fired.Count(), 1);
  }
}

// A timer class derived by a host.
class CountingTimer : public Timer {
 public:
  explicit CountingTimer(bool repeating) : Timer(1, repeating) {}
  void OnTimeout() override { fired.Add(); }

  Events fired;
};

TEST(Timer, Derived) {
  const auto once = std::make_shared<CountingTimer>(kOnce);
  const auto repeating = std::make_shared<CountingTimer>(kRepeating);
  once->Start();
  repeating->Start();
  EXPECT_TRUE(once->fired.Await());
  EXPECT_TRUE(repeating->fired.Await(3));
  repeating->Stop();
  EXPECT_EQ(repeating.use_count(), 1);
  EXPECT_EQ(once->fired.Count(), 1);
}

TEST(TsTimer, InitReplaces) {
  const auto first = std::make_shared<int>();
  const auto second = std::make_shared<int>();
  Events fired;
  const TestTimer timer(1, kOnce, [first] { ADD_FAILURE(); });
  EXPECT_EQ(first.use_count(), 2);
  timer->Init([second, &fired] { fired.Add(); });
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(second.use_count(), 2);
  timer->Start();
  EXPECT_TRUE(fired.Await());
}

// ---- exceptions ----

class HostError : public std::exception {};

TEST(TsTimer, Exceptions) {
  const auto log = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const std::function<void()> swallowed[] = {
      nullptr,
      [] { throw std::exception(); },
      [] { throw std::runtime_error("text"); },
      [] { throw std::bad_alloc(); },
      [] { throw std::bad_weak_ptr(); },
      [] { throw std::system_error(std::make_error_code(std::errc::io_error)); },
      [] { throw HostError(); }};
  for (const auto& action : swallowed) {
    TsTimer direct(1, kOnce);
    if (action) direct.Init(action);
    EXPECT_NO_THROW(direct.OnTimeout());
    // The timer goes on, and so do the timers after it.
    const TestTimer timer(1, kRepeating, action);
    Events fired;
    const TestTimer after(2, kRepeating, [&] { fired.Add(); });
    timer->Start();
    const Milliseconds expire = timer->GetExpire();
    after->Start();
    EXPECT_TRUE(fired.Await(3));
    EXPECT_GT(timer->GetExpire(), expire);
  }
  EXPECT_THAT(log->All(), IsEmpty());
}

TEST(TsTimer, OtherExceptions) {
  TsTimer timer(1, kOnce);
  timer.Init([] { throw 7; });
  EXPECT_THROW(timer.OnTimeout(), int);
  timer.Init([] { throw std::string("text"); });
  EXPECT_THROW(timer.OnTimeout(), std::string);
}

TEST(Timer, NoOwner) {
  for (const Milliseconds timeout : {0ULL, 1ULL, kLong}) {
    SCOPED_TRACE(timeout);
    TsTimer timer(timeout, kOnce);
    EXPECT_NO_THROW(timer.Stop());
    EXPECT_THROW(timer.Start(), std::bad_weak_ptr);
    EXPECT_NO_THROW(timer.Start());  // marked started, so this does nothing
    // Stop() clears the mark and then fails the same way.
    EXPECT_THROW(timer.Stop(), std::bad_weak_ptr);
    EXPECT_NO_THROW(timer.Stop());
  }
}

class TimerDeathTest : public testing::Test {
 protected:
  // Each test runs in a new process, since this one has threads.
  TimerDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(TimerDeathTest, Exception) {
  for (const bool loop : {kOnce, kRepeating}) {
    EXPECT_DEATH(
        {
          Events never;
          const TestTimer timer(1, loop, [] { throw 7; });
          timer->Start();
          never.Await();
        },
        "terminate called after throwing an instance of 'int'");
  }
}

// Destroys a timer that is marked started.
TEST_F(TimerDeathTest, Marked) {
  const std::function<void()> calls[] = {
      [] {
        const auto zero = std::make_shared<TsTimer>(0, kOnce);
        const auto print = [](void*) { std::fputs("callable released\n", stderr); };
        zero->Init([object = std::shared_ptr<void>(nullptr, print)] {});
        zero->Start();
      },
      [] { std::make_shared<TsTimer>(10, kOnce)->SetState(true); },
      [] {
        TsTimer unowned(10, kOnce);
        EXPECT_THROW(unowned.Start(), std::bad_weak_ptr);
      }};
  for (const auto& call : calls) EXPECT_DEATH(call(), "no shared_ptr owns the timer");
  EXPECT_DEATH(calls[0](), "callable released");
}

// ---- many threads ----

TEST(TimerManager, OneInstance) {
  std::vector<TimerManager*> seen(8);
  std::vector<std::thread> threads;
  for (TimerManager*& instance : seen) {
    threads.emplace_back([&instance] { instance = TimerManager::GetInstance(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(AllOf(testing::NotNull(), seen.front())));
}

TEST(Timer, ExpiryThreads) {
  constexpr Milliseconds kLast = 400000;
  const TestTimer timer(10, kOnce);
  timer->SetExpire(0);
  std::thread writer([&timer] {
    for (Milliseconds value = 1; value <= kLast; ++value) timer->SetExpire(value);
  });
  Milliseconds latest = 0;
  while (latest < kLast) {
    const Milliseconds seen = timer->GetExpire();
    EXPECT_GE(seen, latest);
    latest = std::max(latest, seen);
  }
  writer.join();
}

// Many threads and the timers' own actions use the same timers. How many entries remain is
// unspecified, but all of them can be removed.
TEST(Timer, SharedByThreads) {
  Events fired;
  std::atomic<bool> end{false};
  std::vector<std::unique_ptr<TestTimer>> timers;
  const auto use = [&](size_t index, bool start) {
    TestTimer& timer = *timers[index % timers.size()];
    start ? timer->Start() : timer->Stop();
  };
  for (size_t i = 0; i < 4; ++i) {
    timers.push_back(std::make_unique<TestTimer>(1 + i, i % 2 == 0 ? kOnce : kRepeating, [&, i] {
      fired.Add();
      if (!end) use(i + 1, fired.Count() % 2 == 0);
    }));
  }
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed) {
    threads.emplace_back([&use, &end, seed] {
      std::mt19937 random(seed);
      for (int i = 0; !end; ++i) {
        use(random(), random() % 2 == 0);
        if (i % 20 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
  }
  EXPECT_TRUE(fired.Await(100));
  end = true;
  for (std::thread& thread : threads) thread.join();
  for (const auto& timer : timers) EXPECT_TRUE(timer->StopForSure());
  const int count = fired.Count();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(fired.Count(), count);
}

// The timer thread gets the lock even if other threads hold it almost all the time.
TEST(Timer, FiresUnderLoad) {
  std::atomic<bool> end{false};
  Events fired;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&end] {
      const TestTimer timer(kLong, kOnce);
      while (!end) {
        timer->Start();
        timer->Stop();
      }
    });
  }
  {
    const TestTimer timer(1, kRepeating, [&] { fired.Add(); });
    timer->Start();
    EXPECT_TRUE(fired.Await(5));
    end = true;
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
