// Long times in one schedule, on the explorer's clock.

#include <memory>

#include "common/thread_pool.h"
#include "common/timer.h"
#include "threads/explorer/explorer.h"
#include "threads/explorer/process_end.h"

namespace {

using component::TsTimer;
using tarsio::ThreadPool;
using tarsio_test::Check;
using tarsio_test::MemoryInUse;
using tarsio_test::PassTime;
using tarsio_test::Require;
using tarsio_test::Scenario;
using tarsio_test::SleepMs;

constexpr int64_t kHourMs = 3600000;
constexpr int kHoursPerYear = 365 * 24;

Scenario LongScenario() {
  Scenario scenario;
  scenario.bound = 0;
  scenario.mostSteps = UINT64_MAX;
  return scenario;
}

// A timer that fires every hour. Between two firings the machine is asleep.
TEST(LongRuns, YearOfATimer) {
  tarsio_test::Manager();
  Scenario scenario = LongScenario();
  scenario.reset = tarsio_test::ResetProcess;
  scenario.body = [] {
    int fired = 0;
    const auto timer = std::make_shared<TsTimer>(kHourMs, true);
    timer->Init([&fired] { ++fired; });
    timer->Start();
    int64_t memory = 0;
    for (int hour = 0; hour < kHoursPerYear; ++hour) {
      PassTime(kHourMs);
      SleepMs(12);  // three passes
      Require(fired == hour + 1, "not one firing an hour");
      if (hour == 0) memory = MemoryInUse();
    }
    Require(MemoryInUse() == memory, "memory grows");
    timer->Stop();
    tarsio_test::ShutDownManager();
  };
  Check(scenario, 1);
}

TEST(LongRuns, Retirements) {
  constexpr int kTimes = 100000;
  Scenario scenario = LongScenario();
  scenario.body = [] {
    const auto pool = std::make_shared<ThreadPool>("pool", 2U, 0U, 2U);
    int runs = 0;
    int64_t memory = 0;
    for (int i = 0; i < kTimes; ++i) {
      pool->SubmitTask([&runs] { ++runs; });
      SleepMs(2000);
      Require(runs == i + 1 && pool->GetRunningThreadNumber() == 0, "not one run and retirement");
      if (i == 0) memory = MemoryInUse();
    }
    Require(MemoryInUse() == memory, "memory grows");
  };
  Check(scenario, 1);
}

}  // namespace
