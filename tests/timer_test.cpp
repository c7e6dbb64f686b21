// Timers on the real clock. The rules that need exact times are in timer_manager_test.cpp.

#include "common/timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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
using testing::IsEmpty;

using Milliseconds = unsigned long long;

constexpr Milliseconds kNever = std::numeric_limits<Milliseconds>::max();
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
  for (const Milliseconds value : {0ULL, 1ULL, 10ULL, 1ULL << 32, 1ULL << 63, kNever}) {
    for (const bool loop : {kOnce, kRepeating}) {
      const TestTimer timer(value, loop);
      timer->SetExpire(value);
      EXPECT_EQ(timer->GetExpire(), value);
      timer->Start();
      timer->Stop();
      EXPECT_EQ(timer->GetTimeout(), value);
      EXPECT_EQ(timer->GetLoop(), loop);
    }
  }
}

TEST(TimerManager, WallClock) {
  using std::chrono::system_clock;
  // The runtime's clock may advance only at each timer interrupt, every 15.6 ms.
  constexpr std::chrono::milliseconds kStep(20);
  for (int i = 0; i < 100; ++i) {
    const auto before = system_clock::now();
    const system_clock::time_point now{std::chrono::milliseconds(Now())};
    ASSERT_GE(now, before - kStep);
    ASSERT_LE(now, system_clock::now() + kStep);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// ---- firing ----

TEST(Timer, FiresOnce) {
  constexpr int kTimers = 60;
  Events fired;
  Milliseconds least = kNever;  // of the delays
  std::mt19937_64 random(std::random_device{}());
  std::vector<std::unique_ptr<TestTimer>> timers;
  for (int i = 0; i < kTimers; ++i) {
    // At a random phase of the timer thread.
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));
    const Milliseconds timeout = 1 + random() % 40;
    timers.push_back(std::make_unique<TestTimer>(timeout, kOnce));
    TestTimer& timer = *timers.back();
    timer->Init([&, earliest = Now() + timeout] {
      const Milliseconds now = Now();
      EXPECT_GE(timer->GetExpire(), earliest);
      EXPECT_GE(now, timer->GetExpire());
      least = std::min(least, now - timer->GetExpire());
      fired.Add();
    });
    timer->Start();
  }
  EXPECT_TRUE(fired.Await(kTimers));
  // Passes are 5 ms apart, so some of the timers fires on time even on a busy machine.
  EXPECT_LE(least, 15U);
  std::this_thread::sleep_for(std::chrono::milliseconds(60));
  for (const auto& timer : timers) EXPECT_TRUE(timer->StopForSure());
  EXPECT_EQ(fired.Count(), kTimers);
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

TEST(TsTimer, KeepsState) {
  TsTimer timer(1, kOnce);
  int seen = 0;
  timer.Init([&seen, calls = 0]() mutable { seen = ++calls; });
  timer.OnTimeout();
  timer.OnTimeout();
  EXPECT_EQ(seen, 2);
}

// ---- exceptions ----

TEST(TsTimer, Exceptions) {
  const auto log = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  class HostError : public std::exception {};
  EXPECT_NO_THROW(TsTimer(1, kOnce).OnTimeout());  // without Init()
  const std::function<void()> swallowed[] = {
      nullptr,
      [] { throw std::runtime_error("text"); },
      [] { throw std::bad_alloc(); },
      [] { throw std::bad_weak_ptr(); },
      [] { throw std::exception(); },
      [] { throw std::system_error(std::make_error_code(std::errc::io_error)); },
      [] { throw HostError(); }};
  for (const auto& action : swallowed) {
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
  const auto noOwner =
      testing::ThrowsMessage<std::bad_weak_ptr>(testing::HasSubstr("no shared_ptr owns the timer"));
  for (const Milliseconds timeout : {0ULL, 1ULL}) {
    TsTimer timer(timeout, kOnce);
    EXPECT_NO_THROW(timer.Stop());
    EXPECT_THAT([&] { timer.Start(); }, noOwner);
    EXPECT_NO_THROW(timer.Start());  // marked started, so this does nothing
    // Stop() clears the mark and then fails the same way.
    EXPECT_THAT([&] { timer.Stop(); }, noOwner);
    EXPECT_NO_THROW(timer.Stop());
  }
}

TEST(TimerDeathTest, Exception) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
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
TEST(TimerDeathTest, Marked) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto zero = [] {
    const auto timer = std::make_shared<TsTimer>(0, kOnce);
    const auto print = [](void*) { std::fputs("callable released\n", stderr); };
    timer->Init([object = std::shared_ptr<void>(nullptr, print)] {});
    timer->Start();
  };
  const auto report = testing::HasSubstr("no shared_ptr owns the timer");
  EXPECT_DEATH(zero(), testing::AllOf(testing::HasSubstr("callable released"), report));
  EXPECT_DEATH(TsTimer(10, kOnce).SetState(true), report);
}

}  // namespace
