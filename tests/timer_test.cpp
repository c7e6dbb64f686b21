// Timers on the real clock. Tests that need exact times are in timer_manager_test.cpp.

#include "common/timer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/background_call.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/recording_logger.h"

namespace {

using component::Timer;
using component::TimerManager;
using component::TsTimer;
using tarsio_test::BackgroundCall;
using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::kTestTimeout;
using tarsio_test::OpenOnExit;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;

using Milliseconds = unsigned long long;

constexpr Milliseconds kNever = std::numeric_limits<Milliseconds>::max();
constexpr Milliseconds kLong = 3600000;  // a timer that does not fire while a test runs
constexpr std::chrono::milliseconds kSeveralPasses(60);

Milliseconds Now() { return TimerManager::GetInstance()->GetCurrentMillisecs(); }

// Removes a timer from the queue at the end of a test, however it is marked by then, and waits for
// its action to return. Declare it after everything that the action uses.
template <typename T>
class Scoped {
 public:
  explicit Scoped(std::shared_ptr<T> started) : timer(std::move(started)) {}
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  ~Scoped() {
    if (timer == nullptr) return;
    timer->SetState(true);
    timer->Stop();
  }

  T* operator->() const { return timer.get(); }
  const std::shared_ptr<T>& Get() const { return timer; }
  // One reference by the test and one for each queue entry.
  long Entries() const { return timer.use_count() - 1; }

 private:
  const std::shared_ptr<T> timer;
};

class TestTimer : public Scoped<TsTimer> {
 public:
  TestTimer(Milliseconds timeoutMs, bool repeating, std::function<void()> action)
      : Scoped(std::make_shared<TsTimer>(timeoutMs, repeating)) {
    Get()->Init(std::move(action));
  }
  TestTimer(Milliseconds timeoutMs, bool repeating)
      : Scoped(std::make_shared<TsTimer>(timeoutMs, repeating)) {}
};

constexpr bool kOnce = false;
constexpr bool kRepeating = true;

// Waits for two more full passes: every timer that was due before the call has fired by then.
void AwaitPasses() {
  Events fired;
  const TestTimer timer(1, kRepeating, [&] { fired.Add(); });
  timer->Start();
  EXPECT_TRUE(fired.Await(2));
}

// Polls a condition that cannot be waited for.
template <typename Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kTestTimeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// ---- declarations ----

// A timer class derived by a host.
class CountingTimer : public Timer {
 public:
  CountingTimer(Milliseconds timeoutMs, bool repeating) : Timer(timeoutMs, repeating) {}
  void OnTimeout() override { fired.Add(); }

  Events fired;
};

TEST(Timer, Interface) {
  static_assert(std::is_abstract_v<Timer>);
  static_assert(std::has_virtual_destructor_v<Timer>);
  static_assert(std::is_base_of_v<std::enable_shared_from_this<Timer>, Timer>);
  static_assert(std::is_convertible_v<TsTimer*, Timer*>, "publicly derived");
  static_assert(std::is_constructible_v<TsTimer, unsigned long long, bool>);
  static_assert(!std::is_copy_constructible_v<TsTimer>);
  static_assert(std::is_same_v<decltype(&Timer::Start), void (Timer::*)()>);
  static_assert(std::is_same_v<decltype(&Timer::Stop), void (Timer::*)()>);
  static_assert(std::is_same_v<decltype(&Timer::OnTimeout), void (Timer::*)()>);
  static_assert(std::is_same_v<decltype(&Timer::SetState), void (Timer::*)(bool)>);
  static_assert(std::is_same_v<decltype(&Timer::SetExpire), void (Timer::*)(unsigned long long)>);
  static_assert(std::is_same_v<decltype(&Timer::GetExpire), unsigned long long (Timer::*)()>,
                "not const");
  static_assert(
      std::is_same_v<decltype(&Timer::GetTimeout), unsigned long long (Timer::*)() const>);
  static_assert(std::is_same_v<decltype(&Timer::GetLoop), bool (Timer::*)() const>);
  static_assert(std::is_same_v<decltype(&TsTimer::Init), void (TsTimer::*)(std::function<void()>)>);
  static_assert(
      std::is_same_v<decltype(&TimerManager::GetInstance), component::TimerManager* (*)()>);
  static_assert(std::is_same_v<decltype(&TimerManager::GetCurrentMillisecs),
                               unsigned long long (TimerManager::*)() const>);
  using ManagerCall = void (TimerManager::*)(std::shared_ptr<Timer>);  // by value
  static_assert(std::is_same_v<decltype(&TimerManager::AddTimer), ManagerCall>);
  static_assert(std::is_same_v<decltype(&TimerManager::RemoveTimer), ManagerCall>);
  static_assert(std::is_same_v<decltype(&TimerManager::ResetTimer), ManagerCall>);
}

TEST(Timer, Arguments) {
  for (const Milliseconds timeout : {0ULL, 1ULL, 10ULL, 1ULL << 32, kNever - 1, kNever}) {
    for (const bool loop : {false, true}) {
      SCOPED_TRACE(std::to_string(timeout) + (loop ? " repeating" : " once"));
      const TestTimer timer(timeout, loop);
      EXPECT_EQ(timer->GetTimeout(), timeout);
      EXPECT_EQ(timer->GetLoop(), loop);
      timer->Start();
      timer->SetExpire(5);
      timer->Stop();
      EXPECT_EQ(timer->GetTimeout(), timeout);
      EXPECT_EQ(timer->GetLoop(), loop);
    }
  }
}

TEST(Timer, InitialState) {
  std::atomic<int> fired{0};
  const TestTimer timer(1, kRepeating, [&] { ++fired; });
  EXPECT_EQ(timer.Entries(), 0);
  AwaitPasses();
  EXPECT_EQ(fired, 0);

  // Stop() of a timer that is not marked started does not need its owner.
  TsTimer unowned(1, kOnce);
  EXPECT_NO_THROW(unowned.Stop());
}

TEST(Timer, SetExpiry) {
  const TestTimer timer(10, kOnce);
  for (const Milliseconds expire : {0ULL, 1ULL, 1ULL << 63, kNever}) {
    timer->SetExpire(expire);
    EXPECT_EQ(timer->GetExpire(), expire);
  }
}

// No update is lost or undone: a thread that has written or read a value never reads an older one
// of the same writer.
TEST(Timer, ExpiryThreads) {
  constexpr Milliseconds kThreads = 4;
  const TestTimer timer(10, kOnce);
  timer->SetExpire(0);
  std::atomic<int> stale{0};
  Gate begin;
  std::vector<std::thread> threads;
  for (Milliseconds self = 0; self < kThreads; ++self) {
    threads.emplace_back([&timer, &stale, &begin, self] {
      begin.Wait();
      Milliseconds latest[kThreads] = {};
      for (Milliseconds value = self; value < 400000; value += kThreads) {
        timer->SetExpire(value);
        latest[self] = value;
        const Milliseconds seen = timer->GetExpire();
        Milliseconds& known = latest[seen % kThreads];
        if (seen < known) ++stale;
        known = seen;
      }
    });
  }
  begin.Open();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(stale, 0);
}

// Members of the same names in a derived class must not override those of the base.
TEST(Timer, Virtual) {
  class Derived : public TsTimer {
   public:
    Derived() : TsTimer(kLong, kOnce) {}
    void Start() { hidden = true; }
    void Stop() { hidden = true; }
    void SetExpire(unsigned long long /*newExpire*/) { hidden = true; }
    unsigned long long GetExpire() { return 1; }
    unsigned long long GetTimeout() const { return 1; }
    bool GetLoop() const { return true; }
    void SetState(bool /*started*/) { hidden = true; }
    void Init(std::function<void()> /*newCallback*/) { hidden = true; }

    bool hidden = false;
  };
  auto owned = std::make_shared<Derived>();
  const Derived& derived = *owned;
  const Scoped<TsTimer> timer(std::move(owned));
  Timer& base = *timer.Get();
  timer->Init([] {});
  base.SetExpire(2);
  EXPECT_EQ(base.GetExpire(), 2U);
  EXPECT_EQ(base.GetTimeout(), kLong);
  EXPECT_FALSE(base.GetLoop());
  base.Start();
  EXPECT_EQ(timer.Entries(), 1);
  base.Stop();
  EXPECT_EQ(timer.Entries(), 0);
  base.SetState(false);
  EXPECT_FALSE(derived.hidden);
}

// ---- the clock ----

TEST(TimerManager, OneInstance) {
  std::vector<TimerManager*> seen(8);
  std::vector<std::thread> threads;
  for (TimerManager*& instance : seen) {
    threads.emplace_back([&instance] { instance = TimerManager::GetInstance(); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_NE(TimerManager::GetInstance(), nullptr);
  EXPECT_THAT(seen, Each(TimerManager::GetInstance()));
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
    ASSERT_THAT(now, Ge(before - kStep));
    ASSERT_THAT(now, Le(after + kStep));
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

// ---- starting and firing ----

TEST(Timer, StartFromNow) {
  for (const Milliseconds timeout : {1000ULL, kLong, 1ULL << 40}) {
    const TestTimer timer(timeout, kOnce);
    const Milliseconds before = Now();
    timer->Start();
    const Milliseconds after = Now();
    EXPECT_THAT(timer->GetExpire(), Ge(before + timeout));
    EXPECT_THAT(timer->GetExpire(), Le(after + timeout));
  }
}

TEST(Timer, FiresOnce) {
  std::random_device seed;
  std::mt19937_64 random(seed());
  for (int round = 0; round < 3; ++round) {
    struct Shot {
      Milliseconds startedAt = 0;
      std::atomic<Milliseconds> firedAt{0};
      Events fired;
    };
    std::vector<Shot> shots(30);
    std::vector<std::unique_ptr<TestTimer>> timers;
    for (Shot& shot : shots) {
      const Milliseconds timeout = 1 + random() % 40;
      timers.push_back(std::make_unique<TestTimer>(timeout, kOnce, [&shot] {
        shot.firedAt = Now();
        shot.fired.Add();
      }));
      // At a random phase of the timer thread.
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 1500));
      shot.startedAt = Now();
      timers.back()->Get()->Start();
    }
    Milliseconds least = kNever;
    for (size_t i = 0; i < shots.size(); ++i) {
      const Milliseconds timeout = timers[i]->Get()->GetTimeout();
      SCOPED_TRACE("timeout " + std::to_string(timeout));
      ASSERT_TRUE(shots[i].fired.Await());
      const Milliseconds firedAt = shots[i].firedAt;
      ASSERT_GE(firedAt, shots[i].startedAt + timeout);
      ASSERT_GE(firedAt, timers[i]->Get()->GetExpire());
      least = std::min(least, firedAt - timers[i]->Get()->GetExpire());
    }
    // Passes are 5 ms apart, so some of thirty timers fires on time even on a busy machine.
    EXPECT_LE(least, 15U);
    AwaitPasses();
    for (size_t i = 0; i < shots.size(); ++i) {
      EXPECT_EQ(shots[i].fired.Count(), 1);
      EXPECT_TRUE(Eventually([&] { return timers[i]->Entries() == 0; }));
    }
  }
}

TEST(Timer, PassInterval) {
  std::mutex mutex;
  std::vector<std::chrono::steady_clock::time_point> passes;
  Events fired;
  const TestTimer timer(1, kRepeating, [&] {
    const std::lock_guard<std::mutex> lock(mutex);
    passes.push_back(std::chrono::steady_clock::now());
    fired.Add();
  });
  timer->Start();
  ASSERT_TRUE(fired.Await(60));
  const std::lock_guard<std::mutex> lock(mutex);
  auto least = std::chrono::steady_clock::duration::max();
  for (size_t i = 1; i < passes.size(); ++i) {
    least = std::min(least, passes[i] - passes[i - 1]);
  }
  EXPECT_GE(least, std::chrono::microseconds(4500));
  EXPECT_LE(least, std::chrono::milliseconds(15));
}

TEST(Timer, TenBeforeTwenty) {
  for (const bool longFirst : {false, true}) {
    std::mutex mutex;
    std::vector<int> order;
    Events fired;
    const auto note = [&](int value) {
      const std::lock_guard<std::mutex> lock(mutex);
      order.push_back(value);
      fired.Add();
    };
    const TestTimer ten(10, kOnce, [&] { note(10); });
    const TestTimer twenty(20, kOnce, [&] { note(20); });
    (longFirst ? twenty : ten)->Start();
    (longFirst ? ten : twenty)->Start();
    ASSERT_TRUE(fired.Await(2));
    // Invalid if the machine stalled between the two starts.
    if (ten->GetExpire() >= twenty->GetExpire()) continue;
    const std::lock_guard<std::mutex> lock(mutex);
    EXPECT_THAT(order, ElementsAre(10, 20));
  }
}

TEST(Timer, Repeats) {
  Events fired;
  const TestTimer timer(3, kRepeating, [&] { fired.Add(); });
  timer->Start();
  ASSERT_TRUE(fired.Await(10));
  timer->Stop();
  const int count = fired.Count();
  AwaitPasses();
  EXPECT_EQ(fired.Count(), count);
  EXPECT_EQ(timer.Entries(), 0);
}

TEST(Timer, RepeatInterval) {
  std::mutex mutex;
  std::vector<Milliseconds> times;
  std::vector<Milliseconds> expiries;
  Events fired;
  TsTimer* self = nullptr;
  const TestTimer timer(12, kRepeating, [&] {
    const std::lock_guard<std::mutex> lock(mutex);
    times.push_back(Now());
    expiries.push_back(self->GetExpire());  // the next expiry, set before the action
    fired.Add();
  });
  self = timer.Get().get();
  const Milliseconds startedAt = Now();
  timer->Start();
  ASSERT_TRUE(fired.Await(10));
  const std::lock_guard<std::mutex> lock(mutex);
  EXPECT_GE(times[0], startedAt + 12);
  for (size_t i = 0; i < times.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_LE(expiries[i], times[i] + 12);  // counted from the earlier time of the pass
    if (i == 0) continue;
    EXPECT_GE(times[i], expiries[i - 1]);
    EXPECT_GE(expiries[i], expiries[i - 1] + 12);
  }
}

TEST(Timer, OneThread) {
  std::mutex mutex;
  std::set<std::thread::id> threads;
  Events fired;
  std::vector<std::unique_ptr<TestTimer>> timers;
  for (int i = 0; i < 24; ++i) {
    timers.push_back(std::make_unique<TestTimer>(static_cast<Milliseconds>(1 + i % 3),
                                                 i % 2 == 0 ? kRepeating : kOnce, [&] {
                                                   const std::lock_guard<std::mutex> lock(mutex);
                                                   threads.insert(std::this_thread::get_id());
                                                   fired.Add();
                                                 }));
  }
  // Many threads race to start the first timer and thus the timer thread.
  std::vector<std::thread> starters;
  for (int t = 0; t < 6; ++t) {
    starters.emplace_back([&timers, t] {
      for (size_t i = 0; i < 4; ++i) timers[static_cast<size_t>(t) * 4 + i]->Get()->Start();
    });
  }
  for (std::thread& starter : starters) starter.join();
  ASSERT_TRUE(fired.Await(200));
  const std::lock_guard<std::mutex> lock(mutex);
  EXPECT_EQ(threads.size(), 1U);
  EXPECT_EQ(threads.count(std::this_thread::get_id()), 0U);
}

TEST(Timer, SecondStart) {
  for (const bool loop : {false, true}) {
    const TestTimer timer(kLong, loop);
    timer->Start();
    const Milliseconds expire = timer->GetExpire();
    EXPECT_EQ(timer.Entries(), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    timer->Start();
    EXPECT_EQ(timer.Entries(), 1);
    EXPECT_EQ(timer->GetExpire(), expire);
  }
}

TEST(Timer, SecondStop) {
  const TestTimer timer(kLong, kOnce);
  timer->Start();
  EXPECT_EQ(timer.Entries(), 1);
  timer->Stop();
  EXPECT_EQ(timer.Entries(), 0);
  timer->Stop();
  EXPECT_EQ(timer.Entries(), 0);
  timer->Start();  // it can be started again
  EXPECT_EQ(timer.Entries(), 1);
}

TEST(Timer, StopBeforeExpiry) {
  bool inTime = false;
  for (int attempt = 0; attempt < 100 && !inTime; ++attempt) {  // retry if the machine stalls
    std::atomic<int> fired{0};
    const TestTimer once(15, kOnce, [&] { ++fired; });
    const TestTimer repeating(15, kRepeating, [&] { ++fired; });
    once->Start();
    repeating->Start();
    once->Stop();
    repeating->Stop();
    inTime = Now() < once->GetExpire();
    std::this_thread::sleep_for(kSeveralPasses);
    if (inTime) {
      EXPECT_EQ(fired, 0);
    }
  }
  EXPECT_TRUE(inTime);
}

TEST(Timer, Restart) {
  Events fired;
  const TestTimer timer(1, kOnce, [&] { fired.Add(); });
  for (int i = 1; i <= 5; ++i) {
    timer->Start();
    ASSERT_TRUE(fired.Await(i));
  }
  AwaitPasses();
  EXPECT_EQ(fired.Count(), 5);
}

TEST(Timer, ZeroTimeout) {
  for (const bool loop : {false, true}) {
    std::atomic<int> fired{0};
    const TestTimer timer(0, loop, [&] { ++fired; });
    timer->SetExpire(77);
    timer->Start();
    EXPECT_EQ(timer.Entries(), 0);
    EXPECT_EQ(timer->GetExpire(), 77U);  // unchanged by the manager
    AwaitPasses();
    EXPECT_EQ(fired, 0);
    timer->Stop();  // clears the mark, so that the timer may be destroyed
    EXPECT_EQ(timer.Entries(), 0);
  }
  std::make_shared<TsTimer>(0, kOnce);
  auto stopped = std::make_shared<TsTimer>(0, kOnce);
  stopped->Start();
  stopped->Stop();
  stopped.reset();
}

TEST(Timer, ExpiryOverflow) {
  for (const Milliseconds timeout : {kNever, kNever - 1, kNever - 1000000000000ULL}) {
    for (const bool loop : {false, true}) {
      SCOPED_TRACE(timeout);
      std::atomic<int> fired{0};
      const TestTimer timer(timeout, loop, [&] { ++fired; });
      timer->Start();
      EXPECT_EQ(timer->GetExpire(), kNever);
      EXPECT_EQ(timer.Entries(), 1);
      AwaitPasses();
      EXPECT_EQ(fired, 0);
      timer->Stop();
      EXPECT_EQ(timer.Entries(), 0);
    }
  }
}

TEST(Timer, Derived) {
  const Scoped<CountingTimer> once(std::make_shared<CountingTimer>(1, kOnce));
  const Scoped<CountingTimer> repeating(std::make_shared<CountingTimer>(1, kRepeating));
  once->Start();
  repeating->Start();
  ASSERT_TRUE(once->fired.Await());
  ASSERT_TRUE(repeating->fired.Await(3));
  repeating->Stop();
  EXPECT_EQ(once->fired.Count(), 1);
}

// ---- the started mark ----

TEST(Timer, SetState) {
  std::atomic<int> fired{0};
  const TestTimer timer(10, kOnce, [&] { ++fired; });
  timer->SetState(true);
  EXPECT_EQ(timer.Entries(), 0);
  timer->Start();  // sees it as started
  EXPECT_EQ(timer.Entries(), 0);
  timer->SetState(false);
  AwaitPasses();
  EXPECT_EQ(fired, 0);

  const TestTimer queued(kLong, kOnce);
  queued->Start();
  queued->SetState(false);
  EXPECT_EQ(queued.Entries(), 1);
  queued->Stop();  // sees it as stopped
  EXPECT_EQ(queued.Entries(), 1);
  queued->Start();  // queues it a second time
  EXPECT_EQ(queued.Entries(), 2);
  queued->Stop();  // removes both entries
  EXPECT_EQ(queued.Entries(), 0);
}

TEST(Timer, OneShotIsStopped) {
  Events fired;
  TsTimer* self = nullptr;
  const TestTimer timer(5, kOnce, [&] {
    if (fired.Count() < 3) self->Start();  // would do nothing if the timer were still marked
    fired.Add();
  });
  self = timer.Get().get();
  const Milliseconds startedAt = Now();
  timer->Start();
  ASSERT_TRUE(fired.Await(4));
  EXPECT_GE(Now(), startedAt + 4 * 5);
  AwaitPasses();
  EXPECT_EQ(fired.Count(), 4);
  EXPECT_TRUE(Eventually([&] { return timer.Entries() == 0; }));
}

TEST(Timer, RepeatSelfStop) {
  Events fired;
  TsTimer* self = nullptr;
  const TestTimer timer(2, kRepeating, [&] {
    self->Stop();
    fired.Add();
  });
  self = timer.Get().get();
  timer->Start();
  ASSERT_TRUE(fired.Await(4));
  timer->Stop();  // already marked stopped
  const int count = fired.Count();
  ASSERT_TRUE(fired.Await(count + 3));
}

// ---- threads of calls and actions ----

TEST(Timer, CallsFromAction) {
  Events started;
  const TestTimer other(1, kOnce, [&] { started.Add(); });
  const TestTimer stopped(kLong, kRepeating);
  stopped->Start();
  Events done;
  TimerManager* instance = nullptr;
  const TestTimer timer(1, kOnce, [&] {
    instance = TimerManager::GetInstance();
    other->Start();
    stopped->Stop();
    done.Add();
  });
  timer->Start();
  ASSERT_TRUE(done.Await());
  ASSERT_TRUE(started.Await());
  EXPECT_EQ(stopped.Entries(), 0);
  EXPECT_EQ(instance, TimerManager::GetInstance());
}

TEST(Timer, CallersWait) {
  const auto entered = std::make_shared<Gate>();
  const auto release = std::make_shared<Gate>();
  const auto queued = std::make_shared<TsTimer>(kLong, kOnce);
  queued->Start();
  const auto fresh = std::make_shared<TsTimer>(kLong, kOnce);
  const Scoped<TsTimer> stopQueued(queued);
  const Scoped<TsTimer> stopFresh(fresh);
  const TestTimer blocking(1, kOnce, [entered, release] {
    entered->Open();
    release->WaitFor();
  });
  const OpenOnExit guard({release});
  blocking->Start();
  ASSERT_TRUE(entered->WaitFor());
  BackgroundCall start([fresh] { fresh->Start(); });
  BackgroundCall stop([queued] { queued->Stop(); });
  EXPECT_TRUE(start.StaysBlocked());
  EXPECT_TRUE(stop.StaysBlocked());
  // Calls that do not need the queue do not block.
  const auto other = std::make_shared<TsTimer>(0, kOnce);
  BackgroundCall unrelated([other] {
    other->Init([] {});
    other->SetState(true);
    other->SetExpire(other->GetExpire() + other->GetTimeout());
    other->SetState(other->GetLoop());
    TimerManager::GetInstance()->GetCurrentMillisecs();
  });
  EXPECT_TRUE(unrelated.ReturnsWithin(kTestTimeout / 4));  // before the action times out
  release->Open();
  EXPECT_TRUE(start.ReturnsWithin());
  EXPECT_TRUE(stop.ReturnsWithin());
  EXPECT_EQ(fresh.use_count(), 3);  // two references here, one in the queue
  EXPECT_EQ(queued.use_count(), 2);
}

TEST(Timer, BlockedAction) {
  const auto entered = std::make_shared<Gate>();
  const auto release = std::make_shared<Gate>();
  Events fired;
  const TestTimer other(1, kRepeating, [&] { fired.Add(); });
  const TestTimer blocking(1, kOnce, [entered, release] {
    entered->Open();
    release->WaitFor();
  });
  const OpenOnExit guard({release});
  other->Start();
  ASSERT_TRUE(fired.Await());
  blocking->Start();
  ASSERT_TRUE(entered->WaitFor());
  const int count = fired.Count();
  std::this_thread::sleep_for(kSeveralPasses);
  EXPECT_EQ(fired.Count(), count);
  release->Open();
  EXPECT_TRUE(fired.Await(count + 3));
}

TEST(Timer, StopIsFinal) {
  for (int i = 0; i < 40; ++i) {
    std::atomic<bool> stopped{false};
    std::atomic<bool> late{false};
    Events fired;
    const TestTimer timer(1, kRepeating, [&] {
      if (stopped) late = true;
      fired.Add();
      std::this_thread::sleep_for(std::chrono::microseconds(300));
      if (stopped) late = true;  // Stop() also waits for a running action
    });
    timer->Start();
    ASSERT_TRUE(fired.Await());
    timer->Stop();
    stopped = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(i % 8));
    EXPECT_FALSE(late);
  }
}

// ---- ownership ----

TEST(Timer, OneShotDropped) {
  Events fired;
  auto timer = std::make_shared<TsTimer>(10, kOnce);
  timer->Init([&] { fired.Add(); });
  const std::weak_ptr<TsTimer> watch = timer;
  timer->Start();
  timer.reset();
  ASSERT_TRUE(fired.Await());
  EXPECT_TRUE(Eventually([&] { return watch.expired(); }));  // no reference is left
}

TEST(Timer, RepeatingDropped) {
  Events fired;
  auto timer = std::make_shared<TsTimer>(1, kRepeating);
  timer->Init([&] { fired.Add(); });
  const std::weak_ptr<TsTimer> watch = timer;
  timer->Start();
  timer.reset();
  EXPECT_TRUE(fired.Await(5));
  ASSERT_FALSE(watch.expired());
  watch.lock()->Stop();
  EXPECT_TRUE(Eventually([&] { return watch.expired(); }));
}

TEST(TsTimer, InitReplaces) {
  const auto first = std::make_shared<int>();
  const auto second = std::make_shared<int>();
  Events fired;
  std::atomic<int> wrong{0};
  auto timer = std::make_shared<TsTimer>(1, kOnce);
  timer->Init([first, &wrong] { ++wrong; });
  EXPECT_EQ(first.use_count(), 2);
  timer->Init([second, &fired] { fired.Add(); });
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_EQ(second.use_count(), 2);
  timer->Start();
  EXPECT_TRUE(fired.Await());
  EXPECT_EQ(wrong, 0);
  timer->Stop();
  AwaitPasses();
  timer.reset();
  EXPECT_EQ(second.use_count(), 1);
}

TEST(TsTimer, OnTimeout) {
  TsTimer timer(10, kOnce);
  std::thread::id thread;
  timer.Init([&] { thread = std::this_thread::get_id(); });
  timer.OnTimeout();
  EXPECT_EQ(thread, std::this_thread::get_id());
}

// ---- exceptions ----

class HostError : public std::exception {};

struct ThrowingAction {
  const char* name;
  std::function<void()> action;
};

std::vector<ThrowingAction> SwallowedActions() {
  return {{"empty callable", nullptr},
          {"std::exception", [] { throw std::exception(); }},
          {"std::runtime_error", [] { throw std::runtime_error("text"); }},
          {"std::bad_alloc", [] { throw std::bad_alloc(); }},
          {"std::bad_weak_ptr", [] { throw std::bad_weak_ptr(); }},
          {"std::system_error",
           [] { throw std::system_error(std::make_error_code(std::errc::io_error)); }},
          {"the host's own", [] { throw HostError(); }}};
}

TEST(TsTimer, Exceptions) {
  const auto log = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const ThrowingAction& row : SwallowedActions()) {
    SCOPED_TRACE(row.name);
    TsTimer direct(1, kOnce);
    direct.Init(row.action);
    EXPECT_NO_THROW(direct.OnTimeout());

    // The timer goes on, and so do the timers after it.
    Events thrown;
    const TestTimer timer(1, kRepeating, [&] {
      thrown.Add();
      row.action();
    });
    const TestTimer bare(1, kRepeating, row.action);
    const TestTimer last(1, kOnce, row.action);
    Events fired;
    const TestTimer after(2, kRepeating, [&] { fired.Add(); });
    timer->Start();
    bare->Start();
    last->Start();
    after->Start();
    EXPECT_TRUE(thrown.Await(3));
    EXPECT_TRUE(fired.Await(3));
    EXPECT_TRUE(Eventually([&] { return last.Entries() == 0; }));
  }
  EXPECT_TRUE(log->All().empty());
}

TEST(TsTimer, NoInit) {
  const auto log = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const TestTimer once(1, kOnce);
  once->Start();
  EXPECT_TRUE(Eventually([&] { return once.Entries() == 0; }));
  once->Start();  // no longer marked started
  EXPECT_TRUE(Eventually([&] { return once.Entries() == 0; }));

  const TestTimer repeating(1, kRepeating);
  repeating->Start();
  const Milliseconds expire = repeating->GetExpire();
  EXPECT_TRUE(Eventually([&] { return repeating->GetExpire() > expire; }));
  EXPECT_TRUE(log->All().empty());
}

TEST(TsTimer, OtherExceptions) {
  TsTimer timer(1, kOnce);
  timer.Init([] { throw 7; });
  EXPECT_THROW(timer.OnTimeout(), int);
  timer.Init([] { throw std::string("text"); });
  EXPECT_THROW(timer.OnTimeout(), std::string);
}

TEST(Timer, StartNoOwner) {
  for (const Milliseconds timeout : {0ULL, 1ULL, kLong}) {
    SCOPED_TRACE(timeout);
    TsTimer timer(timeout, kOnce);
    EXPECT_THROW(timer.Start(), std::bad_weak_ptr);
    EXPECT_NO_THROW(timer.Start());  // marked started, so this does nothing
    // Stop() clears the mark and then fails the same way.
    EXPECT_THROW(timer.Stop(), std::bad_weak_ptr);
    EXPECT_NO_THROW(timer.Stop());
    EXPECT_THROW(timer.Start(), std::bad_weak_ptr);
    timer.SetState(false);
  }
}

TEST(Timer, StopNoOwner) {
  TsTimer timer(10, kRepeating);
  timer.SetState(true);
  EXPECT_THROW(timer.Stop(), std::bad_weak_ptr);
  EXPECT_NO_THROW(timer.Stop());
}

class TimerDeathTest : public testing::Test {
 protected:
  // Each test runs in a new process, since this one has threads.
  TimerDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(TimerDeathTest, Exception) {
  for (const bool loop : {false, true}) {
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

TEST_F(TimerDeathTest, Zero) {
  EXPECT_DEATH(
      {
        auto timer = std::make_shared<TsTimer>(0, kOnce);
        timer->Start();
        timer.reset();
      },
      "no shared_ptr owns the timer");
}

TEST_F(TimerDeathTest, Marked) {
  EXPECT_DEATH(
      {
        auto timer = std::make_shared<TsTimer>(10, kOnce);
        timer->SetState(true);
        timer.reset();
      },
      "no shared_ptr owns the timer");
}

TEST_F(TimerDeathTest, FailedStart) {
  EXPECT_DEATH(
      {
        TsTimer timer(10, kOnce);
        EXPECT_THROW(timer.Start(), std::bad_weak_ptr);
      },
      "no shared_ptr owns the timer");
}

TEST_F(TimerDeathTest, Callable) {
  struct Reporting {
    explicit Reporting(bool* setBy) : released(setBy) {}
    Reporting(const Reporting&) = delete;
    Reporting& operator=(const Reporting&) = delete;
    ~Reporting() {
      std::fputs("callable released\n", stderr);
      std::fflush(stderr);
      *released = true;
    }
    bool* released;
  };
  EXPECT_DEATH(
      {
        bool released = false;
        auto timer = std::make_shared<TsTimer>(0, kOnce);
        timer->Init([reporting = std::make_shared<Reporting>(&released)] {});
        timer->Start();
        timer.reset();  // ends the process
      },
      "callable released");
}

// ---- many threads ----

// Each thread uses its own timers: starts them, stops some, and accounts for all.
TEST(Timer, ManyTimers) {
  constexpr int kThreads = 6;
  constexpr int kRounds = 60;
  std::atomic<int> kept{0};
  std::atomic<int> keptFired{0};
  std::atomic<int> stopped{0};
  std::atomic<int> stoppedLate{0};  // had fired before Stop()
  std::atomic<int> stoppedFired{0};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937_64 random(static_cast<uint64_t>(t));
      const auto bystander = std::make_shared<TsTimer>(kLong, kOnce);
      for (int i = 0; i < kRounds; ++i) {
        auto fired = std::make_shared<std::atomic<int>>(0);
        auto timer = std::make_shared<TsTimer>(1 + random() % 6, kOnce);
        const bool keep = random() % 2 == 0;
        timer->Init([&, fired, keep] {
          ++*fired;
          ++(keep ? keptFired : stoppedFired);
        });
        timer->Start();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 8000));
        if (keep) {
          ++kept;
          timer.reset();  // fires nevertheless
          continue;
        }
        timer->Stop();
        // Stop() returns at once if the timer was just marked stopped in order to fire, so wait for
        // the pass.
        bystander->Start();
        bystander->Stop();
        const int before = *fired;
        if (before != 0 && before != 1) ++wrong;
        stoppedLate += before;
        ++stopped;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 1000));
        if (*fired != before) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(kept + stopped, kThreads * kRounds);
  EXPECT_TRUE(Eventually([&] { return keptFired == kept; }));
  std::this_thread::sleep_for(kSeveralPasses);
  EXPECT_EQ(keptFired, kept);
  EXPECT_EQ(stoppedFired, stoppedLate);
  EXPECT_EQ(wrong, 0);
}

// Many threads and the timer's own action use one timer. How many entries remain is unspecified,
// but each of them can be removed.
TEST(Timer, SharedByThreads) {
  std::atomic<int> fired{0};
  std::atomic<bool> quiet{false};
  std::vector<std::unique_ptr<TestTimer>> timers;
  for (int i = 0; i < 4; ++i) {
    timers.push_back(std::make_unique<TestTimer>(
        static_cast<Milliseconds>(1 + i), i % 2 == 0 ? kOnce : kRepeating, [&, i] {
          ++fired;
          if (quiet) return;
          TsTimer& next = *timers[static_cast<size_t>(i + 1) % 4]->Get();
          fired % 2 == 0 ? next.Start() : next.Stop();
        }));
  }
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&timers, t] {
      std::mt19937_64 random(static_cast<uint64_t>(t));
      for (int i = 0; i < 400; ++i) {
        TsTimer& timer = *timers[random() % timers.size()]->Get();
        random() % 2 == 0 ? timer.Start() : timer.Stop();
        if (i % 20 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  quiet = true;
  AwaitPasses();  // the last action that starts a timer has returned
  for (const auto& timer : timers) {
    timer->Get()->SetState(true);
    timer->Get()->Stop();
    EXPECT_TRUE(Eventually([&] { return timer->Entries() == 0; }));
  }
  const int count = fired;
  EXPECT_GT(count, 0);
  AwaitPasses();
  EXPECT_EQ(fired, count);
}

// The timer thread gets the lock even if other threads hold it almost all the time.
TEST(Timer, FiresUnderLoad) {
  std::atomic<bool> end{false};
  Events fired;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&end] {
      const auto timer = std::make_shared<TsTimer>(kLong, kOnce);
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

// The action restarts the timer while Stop() waits for the lock. Stop() has to clear the mark, or
// the timer's destructor would end the process.
TEST(Timer, StopAfterRestart) {
  const auto inAction = std::make_shared<Gate>();
  const auto goOn = std::make_shared<Gate>();
  auto timer = std::make_shared<TsTimer>(1, false);
  TsTimer* const raw = timer.get();
  timer->Init([=] {
    inAction->Open();
    goOn->Wait();
    raw->Start();
  });
  timer->Start();
  ASSERT_TRUE(inAction->WaitFor());
  timer->SetState(true);  // as if Stop() came just before the pass
  BackgroundCall stop([&timer] { timer->Stop(); });
  EXPECT_FALSE(stop.ReturnsWithin(std::chrono::milliseconds(50))) << "it waits for the action";
  goOn->Open();
  ASSERT_TRUE(stop.ReturnsWithin());
  EXPECT_EQ(timer.use_count(), 1);
  timer.reset();
}

}  // namespace
