#include "common/timer.h"

#include <array>
#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "threads/explorer/explorer.h"
#include "threads/explorer/process_end.h"

namespace {

using component::TsTimer;
using tarsio_test::Check;
using tarsio_test::EndProcess;
using tarsio_test::Faults;
using tarsio_test::Manager;
using tarsio_test::NowMs;
using tarsio_test::Point;
using tarsio_test::Require;
using tarsio_test::Scenario;
using tarsio_test::Shared;
using tarsio_test::ShutDownManager;
using tarsio_test::SleepMs;
using tarsio_test::System;
using TimerPtr = std::shared_ptr<TsTimer>;

constexpr int64_t kPassMs = 5;
constexpr unsigned long long kTimeoutMs = 5;
constexpr int64_t kLongMs = 20;

// Calls of an action. One is in progress between its two points.
struct Firings {
  Firings() = default;
  Firings(const Firings&) = delete;
  Firings& operator=(const Firings&) = delete;
  ~Firings() { ShutDownManager(); }  // no action runs afterwards

  void Fire() {
    Require(!inProgress, "two actions at a time");
    inProgress = true;
    Require(!forbidden, "a timer fires after its Stop()");
    Point();
    ++count;
    inProgress = false;
  }

  Shared<int> count;
  Shared<bool> inProgress;
  Shared<bool> forbidden;
};

TimerPtr MakeTimer(Firings& firings, bool repeating, unsigned long long timeoutMs = kTimeoutMs) {
  auto timer = std::make_shared<TsTimer>(timeoutMs, repeating);
  timer->Init([&firings] { firings.Fire(); });
  return timer;
}

// Runs `body` with a manager that has just been created, and ends it like the process does.
void CheckTimers(int bound, uint64_t atLeast, std::function<void()> body, Scenario scenario = {}) {
  scenario.bound = bound;
  Manager();
  scenario.reset = tarsio_test::ResetProcess;
  scenario.body = [body = std::move(body)] {
    body();
    ShutDownManager();
  };
  Check(scenario, atLeast);
}

TEST(TimerSchedules, OneShot) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, false);
    timer->Start();
    while (firings.count == 0) SleepMs(kPassMs);
    ShutDownManager();
    Require(firings.count == 1, "a one-shot timer fires twice");
  };
  CheckTimers(5, 3300, body);
}

// When Stop() has returned, a repeating timer does not fire any more.
TEST(TimerSchedules, StopRepeating) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, true);
    timer->Start();
    SleepMs(static_cast<int64_t>(kTimeoutMs));
    timer->Stop();
    Require(!firings.inProgress, "the action runs after Stop()");
    firings.forbidden = true;
    SleepMs(kLongMs);
    Require(timer.use_count() == 1, "still queued");
  };
  CheckTimers(5, 10000, body);
}

// A one-shot timer may be in its action when Stop() returns, but does not start it then.
TEST(TimerSchedules, StopOneShot) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, false);
    timer->Start();
    SleepMs(static_cast<int64_t>(kTimeoutMs));
    timer->Stop();
    Manager().RemoveTimer(nullptr);  // waits for the pass in progress
    firings.forbidden = true;
    SleepMs(kLongMs);
    Require(timer.use_count() == 1, "still queued");
  };
  CheckTimers(5, 19000, body);
}

// Two threads start and stop a timer. Each start fires at most once, and it can be used afterwards.
void ByTwoThreads(bool repeating) {
  Firings firings;
  const TimerPtr timer = MakeTimer(firings, repeating);
  std::thread other([&] {
    timer->Start();
    timer->Stop();
  });
  timer->Start();
  timer->Stop();
  other.join();
  timer->Stop();
  Manager().RemoveTimer(timer);
  timer->SetState(false);
  const int before = firings.count;
  Require(repeating || before <= 2, "more firings than starts");
  timer->Start();
  while (firings.count == before) SleepMs(kPassMs);
  timer->Stop();
}

TEST(TimerSchedules, SharedOneShot) {
  CheckTimers(3, 36000, [] { ByTwoThreads(false); });
}
TEST(TimerSchedules, SharedRepeating) {
  CheckTimers(3, 58000, [] { ByTwoThreads(true); });
}

// A repeating timer that calls `function` on itself when it fires.
TimerPtr MakeCalling(Firings& firings, void (TsTimer::*function)()) {
  auto timer = std::make_shared<TsTimer>(kTimeoutMs, true);
  timer->Init([&firings, self = timer.get(), function] {
    firings.Fire();
    (self->*function)();
  });
  return timer;
}

// Two threads start a timer at the same time: it is queued once.
TEST(TimerSchedules, TwoStarts) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, false);
    std::thread other([&timer] { timer->Start(); });
    timer->Start();
    other.join();
    Require(firings.count > 0 || timer.use_count() == 2, "not queued once");
    while (firings.count == 0) SleepMs(kPassMs);
  };
  CheckTimers(5, 10000, body);
}

// An action starts its timer while another thread stops it: the timer can be started afterwards.
TEST(TimerSchedules, StopDuringStart) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeCalling(firings, &TsTimer::Start);
    timer->Start();
    SleepMs(static_cast<int64_t>(kTimeoutMs));
    timer->Stop();
    Require(timer.use_count() == 1, "still queued");
    const int before = firings.count;
    timer->Start();
    while (firings.count == before) SleepMs(kPassMs);
    timer->Stop();
  };
  CheckTimers(4, 100000, body);
}

// A repeating timer that stops itself continues to fire.
TEST(TimerSchedules, StopsItself) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeCalling(firings, &TsTimer::Stop);
    timer->Start();
    while (firings.count < 2) SleepMs(kPassMs);
  };
  CheckTimers(5, 44000, body);
}

// A start that meets the firing of the same timer is not lost.
TEST(TimerSchedules, Rearm) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, false);
    timer->Start();
    SleepMs(static_cast<int64_t>(kTimeoutMs));
    timer->Stop();
    timer->Start();
    const int before = firings.count;
    while (firings.count == before) SleepMs(kPassMs);
  };
  CheckTimers(5, 45000, body);
}

TEST(TimerSchedules, Reset) {
  const auto body = [] {
    Firings first;
    Firings second;
    const TimerPtr timer = MakeTimer(first, false);
    const TimerPtr other = MakeTimer(second, true, kTimeoutMs + 1);
    timer->Start();
    other->Start();
    std::thread thread([&] { Manager().ResetTimer(timer); });
    SleepMs(static_cast<int64_t>(kTimeoutMs));
    Manager().ResetTimer(timer);
    thread.join();
    while (first.count == 0 || second.count == 0) SleepMs(kPassMs);
    other->Stop();
    Require(first.count == 1, "a one-shot timer fires twice");
  };
  Scenario scenario;
  CheckTimers(3, 33000, body, scenario);
}

// Actions start, stop and drop timers, also their own.
TEST(TimerSchedules, Actions) {
  const auto body = [] {
    Firings firings;
    Firings stopped;
    const TimerPtr victim = MakeTimer(stopped, true, 2 * kTimeoutMs);
    auto again = std::make_shared<TsTimer>(kTimeoutMs, false);
    again->Init([&, timer = again.get()] {
      victim->Stop();
      stopped.forbidden = true;
      firings.Fire();
      if (firings.count == 1) timer->Start();
      throw std::runtime_error("ignored");
    });
    victim->Start();
    again->Start();
    Point();
    std::exchange(again, nullptr).reset();
    while (firings.count < 2) SleepMs(kPassMs);
    Require(victim.use_count() == 1, "still queued");
  };
  CheckTimers(4, 23000, body);
}

// The last owner lets a queued timer go; it fires nevertheless and ends with its firing.
TEST(TimerSchedules, Drop) {
  const auto body = [] {
    Firings firings;
    TimerPtr timer = MakeTimer(firings, false);
    const std::weak_ptr<TsTimer> watch = timer;
    timer->Start();
    Point();
    timer.reset();
    while (!watch.expired()) SleepMs(kPassMs);
    Require(firings.count == 1, "not fired once");
  };
  Scenario scenario;
  scenario.unlockPoints = true;
  CheckTimers(5, 6000, body, scenario);
}

// The manager ends at any moment of a start, a stop and a firing. No timer fires then, and the join
// ends.
TEST(TimerSchedules, Shutdown) {
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, true);
    const TimerPtr late = MakeTimer(firings, false);
    timer->Start();
    std::thread other([&] {
      late->Start();
      timer->Stop();
    });
    ShutDownManager();
    firings.forbidden = true;
    other.join();
    Require(timer.use_count() == 1 && late.use_count() == 1, "still queued");
    late->SetState(false);
  };
  CheckTimers(5, 18000, body);
}

// Returns whether the thread start or an allocation fails. The timer may be queued nevertheless.
bool StartFails(const TimerPtr& timer) {
  try {
    const Faults faults;
    timer->Start();
  } catch (const std::exception&) {
    return true;
  }
  return false;
}

// The next start starts the thread.
TEST(TimerSchedules, FailingStart) {
  Scenario scenario;
  scenario.faults = 1;
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, false);
    if (StartFails(timer) && timer.use_count() == 1) timer->Start();
    Firings others;
    const TimerPtr next = MakeTimer(others, false);
    next->Start();
    while (others.count == 0 || firings.count == 0) SleepMs(kPassMs);
    ShutDownManager();
    Require(firings.count == 1, "a one-shot timer fires twice");
  };
  CheckTimers(4, 12000, body, scenario);
}

// A timer can be stopped after its start has failed.
TEST(TimerSchedules, StopAfterFailingStart) {
  Scenario scenario;
  scenario.faults = 1;
  const auto body = [] {
    Firings firings;
    const TimerPtr timer = MakeTimer(firings, true);
    static_cast<void>(StartFails(timer));
    timer->Stop();
    Require(timer.use_count() == 1, "still queued");
  };
  CheckTimers(4, 480, body, scenario);
}

// A repeating timer is queued again without allocating, also if its action starts another one.
TEST(TimerSchedules, Requeue) {
  Scenario scenario;
  scenario.faults = 1;
  const auto body = [] {
    Firings first;
    Firings second;
    const TimerPtr other = MakeTimer(second, false);
    const auto timer = std::make_shared<TsTimer>(kTimeoutMs, true);
    timer->Init([&] {
      first.Fire();
      other->Start();
    });
    if (StartFails(timer)) {
      timer->Start();
      if (timer.use_count() > 1) other->Start();  // which starts the thread
    }
    while (first.count < 3 || second.count == 0) SleepMs(kPassMs);
    timer->Stop();
  };
  CheckTimers(2, 44000, body, scenario);
}

// A timer that is reset does not delay another one.
TEST(TimerSchedules, ResetOfTheNext) {
  const auto body = [] {
    Firings first;
    Firings second;
    const TimerPtr timer = MakeTimer(first, false, 50);
    const TimerPtr other = MakeTimer(second, false, 60);
    const int64_t start = NowMs();
    timer->Start();
    other->Start();
    SleepMs(40);
    Manager().ResetTimer(timer);
    while (second.count == 0 && NowMs() < start + 80) SleepMs(kPassMs);
    Require(second.count == 1, "a timer fires late");
  };
  CheckTimers(1, 510, body);
}

// The expiry of a queued timer changes while others are stopped. The last stop restores the order.
TEST(TimerSchedules, SetExpire) {
  const auto body = [] {
    Firings firings;
    std::array<TimerPtr, 6> timers;
    unsigned long long timeoutMs = 0;
    for (TimerPtr& timer : timers) {
      timer = MakeTimer(firings, false, timeoutMs += 100);
      timer->Start();
    }
    const auto start = static_cast<unsigned long long>(NowMs());
    timers[3]->SetExpire(start + 350);
    std::thread other([&] {
      timers[3]->SetExpire(start + 20);
      timers[1]->Stop();
    });
    timers[2]->Stop();
    other.join();
    const auto late = static_cast<int64_t>(start + 90);
    while (firings.count == 0 && NowMs() < late) SleepMs(kPassMs);
    Require(firings.count == 1, "a timer fires late");
  };
  CheckTimers(3, 100000, body);
}

struct Ending {
  const char* name;
  System system;
  bool inAction;  // instead of on the first thread
  int bound;
  uint64_t atLeast;
};

std::ostream& operator<<(std::ostream& out, const Ending& ending) { return out << ending.name; }

class TimersAtProcessEnd : public testing::TestWithParam<Ending> {};

// The process ends in the middle of a start, a stop and a firing. The end does not wait forever, no
// timer fires afterwards, and statics may still use timers.
void EndWithTimers(const Ending& row) {
  Firings firings;
  const TimerPtr shared = MakeTimer(firings, true);
  TimerPtr queued = MakeTimer(firings, true, kTimeoutMs + 1);
  const auto end = [&] {
    TimerPtr late = MakeTimer(firings, false);
    EndProcess(row.system, [&] {
      const bool otherThreadsRun = row.system == System::kLinux;
      Require(!firings.inProgress || !otherThreadsRun, "the process ends during an action");
      firings.forbidden = true;
      queued.reset();
      late->Start();
      if (otherThreadsRun) late->Stop();
      late.reset();
      SleepMs(kLongMs);
      shared->Stop();
    });
  };
  const auto exiting = std::make_shared<TsTimer>(kTimeoutMs, false);
  exiting->Init(end);
  (row.inAction ? exiting : queued)->Start();
  const std::thread other([&shared] {
    shared->Start();
    shared->Stop();
    shared->Start();
  });
  SleepMs(row.inAction ? kLongMs : static_cast<int64_t>(kTimeoutMs));
  end();
}

TEST_P(TimersAtProcessEnd, Ends) {
  CheckTimers(GetParam().bound, GetParam().atLeast, [row = GetParam()] { EndWithTimers(row); });
}

INSTANTIATE_TEST_SUITE_P(
    Explorer, TimersAtProcessEnd,
    testing::Values(Ending{"Linux", System::kLinux, false, 3, 40000},
                    Ending{"Windows", System::kWindows, false, 5, 55000},
                    Ending{"WindowsAction", System::kWindows, true, 5, 10000},
                    Ending{"ForkedChild", System::kForkedChild, false, 5, 55000},
                    Ending{"ForkInAction", System::kForkedChild, true, 5, 10000}),
    testing::PrintToStringParamName());

}  // namespace
