// What a start and a stop cost while many timers are queued.

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <random>
#include <utility>
#include <vector>

#include "common/timer.h"

namespace {

using component::TsTimer;
using Clock = std::chrono::steady_clock;

constexpr unsigned long long kHourMs = 3600000;

// Queues timers until there are `count`, with expiries spread over an hour, none of them soon. They
// stay queued, so sizes are measured from small to large.
void QueueUpTo(int64_t count) {
  // Never destroyed: a started timer must not be when the manager has ended.
  static auto& queued = *new std::vector<std::shared_ptr<TsTimer>>;
  static std::mt19937 random(1);
  while (static_cast<int64_t>(queued.size()) < count) {
    queued.push_back(std::make_shared<TsTimer>(kHourMs + random() % kHourMs, false));
    queued.back()->Start();
  }
}

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

void BM_TimerStart(benchmark::State& state) {
  QueueUpTo(state.range(0));
  const auto timer = std::make_shared<TsTimer>(kHourMs, false);
  for (auto _ : state) {
    const auto begin = Clock::now();
    timer->Start();
    state.SetIterationTime(SecondsSince(begin));
    timer->Stop();
  }
}

void BM_TimerStop(benchmark::State& state) {
  QueueUpTo(state.range(0));
  const auto timer = std::make_shared<TsTimer>(kHourMs, false);
  for (auto _ : state) {
    timer->Start();
    const auto begin = Clock::now();
    timer->Stop();
    state.SetIterationTime(SecondsSince(begin));
  }
}

const bool registered = [] {
  for (const int64_t queued : {1000, 10000, 100000}) {
    for (const auto& [name, function] :
         {std::pair("timer_start", BM_TimerStart), std::pair("timer_stop", BM_TimerStop)}) {
      benchmark::RegisterBenchmark(name, function)->ArgName("queued")->Arg(queued)->UseManualTime();
    }
  }
  return true;
}();

}  // namespace
