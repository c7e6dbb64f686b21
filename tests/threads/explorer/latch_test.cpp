#include "common/latch.h"

#include <algorithm>
#include <ostream>
#include <thread>
#include <vector>

#include "threads/explorer/explorer.h"

namespace {

using tarsio::CountDownLatch;
using tarsio::CountOutWake;
using tarsio_test::Check;
using tarsio_test::NowMs;
using tarsio_test::Require;
using tarsio_test::Scenario;
using tarsio_test::SleepMs;

struct Row {
  const char* name;
  unsigned count;
  int waiters;
  int64_t timeoutMs;  // 0: none
  int spurious;
  int bound;
  uint64_t atLeast;
};

std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.name; }

class LatchSchedules : public testing::TestWithParam<Row> {};

void AwaitOnce(CountDownLatch& latch, const Row& row) {
  const int64_t start = NowMs();
  // With spurious wake-ups a wait may end early, once.
  for (int i = 0; i <= row.spurious; ++i) {
    latch.Wait(static_cast<unsigned long long>(row.timeoutMs));
  }
  const bool timedOut = row.timeoutMs > 0 && NowMs() >= start + row.timeoutMs;
  Require(latch.GetCount() == 0 || timedOut, "a wait ends too early");
}

// One thread for each step, which may be the last.
TEST_P(LatchSchedules, CountDown) {
  Scenario scenario;
  scenario.bound = GetParam().bound;
  scenario.spurious = GetParam().spurious;
  scenario.body = [row = GetParam()] {
    CountDownLatch latch(row.count);
    std::vector<std::thread> threads;
    for (int i = 0; i < row.waiters; ++i) threads.emplace_back([&] { AwaitOnce(latch, row); });
    for (unsigned i = 1; i < row.count; ++i) threads.emplace_back([&] { latch.CountDown(); });
    latch.CountDown();
    for (std::thread& thread : threads) thread.join();
    Require(latch.GetCount() == 0, "a step is lost");
    latch.CountDown();
    Require(latch.GetCount() == 0, "a step below zero");
    latch.Wait(0);
  };
  Check(scenario, GetParam().atLeast);
}

INSTANTIATE_TEST_SUITE_P(Explorer, LatchSchedules,
                         testing::Values(Row{"OneForOne", 1, 1, 0, 1, 6, 20},
                                         Row{"OneForThree", 1, 3, 0, 1, 3, 91000},
                                         Row{"TwoForTwo", 2, 2, 0, 1, 4, 12000},
                                         Row{"ThreeForOne", 3, 1, 0, 1, 6, 2200},
                                         Row{"ThreeForTwo", 3, 2, 0, 0, 5, 10000},
                                         Row{"ThreeForThree", 3, 3, 0, 0, 2, 100000},
                                         Row{"OneDeadline", 1, 1, 5, 0, 6, 20},
                                         Row{"TwoDeadlines", 2, 2, 5, 0, 5, 36000}),
                         testing::PrintToStringParamName());

TEST(LatchSchedules, TooManySteps) {
  Scenario scenario;
  scenario.bound = 6;
  scenario.body = [] {
    CountDownLatch latch(1);
    std::thread other([&] { latch.CountDown(); });
    latch.CountDown();
    other.join();
    Require(latch.GetCount() == 0, "a step below zero");
  };
  Check(scenario, 10);
}

// The threads of one schedule that wait, and those that must be woken.
struct Wakes {
  int waiting = 0;
  int woken = 0;  // at least
  int waiters = 0;
};

Wakes wakes;

constexpr unsigned kInitial = 5;

void WaitFor(CountOutWake& wake, unsigned long long timeoutNs) {
  ++wakes.waiting;
  wake.Wait(timeoutNs);
  --wakes.waiting;
}

// Counts the threads inside Wait(), then wakes one or all. So many must return.
void WakeSeen(CountOutWake& wake, bool all) {
  const unsigned inside = wake.GetCount() - kInitial;
  Require(inside <= static_cast<unsigned>(wakes.waiters), "a wrong count");
  const auto seen = static_cast<int>(inside);
  if (all) {
    wake.CountAll();
    wakes.woken = std::max(wakes.woken, seen);
  } else {
    wake.CountOut();
    wakes.woken = std::max(wakes.woken, std::min(seen, 1));
  }
}

Scenario WakeScenario(int waiters, const std::function<void(CountOutWake&)>& host) {
  Scenario scenario;
  scenario.bound = 6;
  scenario.body = [waiters, host] {
    wakes = {};
    wakes.waiters = waiters;
    CountOutWake wake(kInitial);
    std::vector<std::thread> threads;
    for (int i = 0; i < waiters; ++i) threads.emplace_back([&wake] { WaitFor(wake, 0); });
    SleepMs(1);
    host(wake);
    for (std::thread& thread : threads) thread.join();
    Require(wake.GetCount() == kInitial, "a wrong count at the end");
  };
  // A wake-up is lost if no thread waits, but only then.
  scenario.mayBlock = [] { return wakes.waiting <= wakes.waiters - wakes.woken; };
  return scenario;
}

TEST(WakeSchedules, CountAll) {
  const auto result =
      Check(WakeScenario(3, [](CountOutWake& wake) { WakeSeen(wake, true); }), 4800);
  EXPECT_GT(result.blocked, 0U);
  EXPECT_LT(result.blocked + result.known, result.schedules);
}

TEST(WakeSchedules, CountOutOne) {
  Check(WakeScenario(1, [](CountOutWake& wake) { WakeSeen(wake, false); }), 17);
}

TEST(WakeSchedules, CountOutOfTwo) {
  const auto result =
      Check(WakeScenario(2, [](CountOutWake& wake) { WakeSeen(wake, false); }), 240);
  EXPECT_EQ(result.blocked + result.known, result.schedules) << "one of two must go on waiting";
}

TEST(WakeSchedules, CountOutTwice) {
  const auto twice = [](CountOutWake& wake) {
    WakeSeen(wake, false);
    WakeSeen(wake, false);
  };
  EXPECT_GT(Check(WakeScenario(2, twice), 780).blocked, 0U);
}

TEST(WakeSchedules, Deadline) {
  Scenario scenario;
  scenario.bound = 6;
  scenario.body = [] {
    CountOutWake wake(kInitial);
    std::thread waiter([&wake] {
      const int64_t start = NowMs();
      wake.Wait(5000000);  // nanoseconds
      Require(NowMs() >= start + 5, "a wait ends too early");
    });
    wake.Wait(5000000);
    waiter.join();
    wake.CountOut();
    Require(wake.GetCount() == kInitial, "a wrong count at the end");
  };
  Check(scenario, 48);
}

}  // namespace
