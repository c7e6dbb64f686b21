// Starts and stops timers while many are queued, measures a pass in which none is due, and fires
// many at once.

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/timer.h"
#include "support/bench.h"
#include "support/gate.h"
#include "support/memory.h"

#ifdef TARSIO_BENCH_BOOST
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#endif

namespace tarsio_bench {

namespace {

using component::TsTimer;
using Clock = std::chrono::steady_clock;

constexpr unsigned long long kHourMs = 3600000;

// Returns a timeout within the second hour from now, so that no timer is due while the program
// runs.
unsigned long long FarTimeoutMs() {
  static std::mt19937 random(1);
  return kHourMs + random() % kHourMs;
}

// Queues timers until there are `count`. They stay queued, so run benchmarks in increasing order.
void QueueOurs(size_t count) {
  // Never destroyed: started timers must not outlive the manager.
  static auto& queued = *new std::vector<std::shared_ptr<TsTimer>>;
  while (queued.size() < count) {
    queued.push_back(std::make_shared<TsTimer>(FarTimeoutMs(), false));
    queued.back()->Start();
  }
}

void OursStartStop(benchmark::State& state, size_t queued) {
  QueueOurs(queued);
  const auto timer = std::make_shared<TsTimer>(FarTimeoutMs(), false);
  timer->Init([] {});
  for (auto _ : state) {
    timer->Start();
    timer->Stop();
  }
}

double ProcessorSeconds() {
  std::timespec time{};
  if (clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time) != 0) std::abort();
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Measures the processor time of the thread that fires timers, from when all are queued until the
// last has been fired.
class Firing {
 public:
  explicit Firing(size_t expected) : left(expected) {}

  // Called on that thread before any timer is fired.
  void AllQueued() { begin = ProcessorSeconds(); }
  // The callback of each timer.
  void Fired() {
    if (--left > 0) return;
    seconds = ProcessorSeconds() - begin;
    done.Open();
  }
  double WaitForSeconds() {
    done.Wait();
    return seconds;
  }

 private:
  size_t left;
  double begin = 0;
  double seconds = 0;
  tarsio_test::Gate done;
};

void OursDueAtOnce(benchmark::State& state, size_t count) {
  for (auto _ : state) {
    Firing firing(count);
    std::vector<std::shared_ptr<TsTimer>> timers;
    for (size_t i = 0; i < count; ++i) {
      timers.push_back(std::make_shared<TsTimer>(1, false));
      timers.back()->Init([&firing] { firing.Fired(); });
    }
    // A timer's action starts the others and returns when all are due, so that the next pass fires
    // all.
    const auto starter = std::make_shared<TsTimer>(1, false);
    starter->Init([&timers, &firing] {
      for (const auto& timer : timers) timer->Start();
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
      firing.AllQueued();
    });
    starter->Start();
    state.SetIterationTime(firing.WaitForSeconds());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
}

// Measures the passes of the timer thread from outside: a pass is the time between two of its
// sleeps. Shortens these sleeps, so that cold caches after 5 ms of idling do not distort the
// result.
class Passes {
 public:
  // Called on the timer thread.
  void Watch() { watched = true; }
  // Replaces a sleep of `duration`.
  int Sleep(std::timespec duration, std::timespec* rest) {
    const bool measured = watched && recording;
    if (measured) {
      PassEnds();
      duration = {0, 50000};
    }
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, &duration, rest);
    passBegin = measured ? Clock::now() : Clock::time_point();
    return error;
  }

  // Records passes for 300 ms and returns their median time, or 0 if there were none.
  double MedianSeconds() {
    recording = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    recording = false;
    const std::lock_guard<std::mutex> lock(mutex);
    std::sort(seconds.begin(), seconds.end());
    const double median = seconds.empty() ? 0 : seconds[seconds.size() / 2];
    seconds.clear();
    return median;
  }

 private:
  void PassEnds() {
    const auto end = Clock::now();
    if (passBegin == Clock::time_point()) return;
    const std::lock_guard<std::mutex> lock(mutex);
    seconds.push_back(std::chrono::duration<double>(end - passBegin).count());
  }

  static thread_local bool watched;
  static thread_local Clock::time_point passBegin;  // unset if the last sleep was not shortened
  std::atomic<bool> recording{false};
  std::mutex mutex;  // guards seconds
  std::vector<double> seconds;
};

thread_local bool Passes::watched = false;
thread_local Clock::time_point Passes::passBegin;

Passes& TimerPasses() {
  static auto& passes = *new Passes;  // the timer thread may outlive statics
  return passes;
}

void OursNoneDue(benchmark::State& state, size_t queued) {
  QueueOurs(queued);
  tarsio_test::Gate watched;
  const auto probe = std::make_shared<TsTimer>(1, false);
  probe->Init([&watched] {
    TimerPasses().Watch();
    watched.Open();
  });
  probe->Start();
  watched.Wait();
  for (auto _ : state) {
    const double seconds = TimerPasses().MedianSeconds();
    if (seconds == 0) state.SkipWithError("no pass was recorded");
    state.SetIterationTime(seconds);
  }
}

// The limit: takes `locks` locks and reads the clock once.
void ClockUnderMutex(benchmark::State& state, size_t locks) {
  std::mutex mutex;
  for (auto _ : state) {
    for (size_t i = 0; i < locks; ++i) {
      const std::lock_guard<std::mutex> lock(mutex);
      if (i == 0) benchmark::DoNotOptimize(std::chrono::system_clock::now());
    }
  }
}

#ifdef TARSIO_BENCH_BOOST

namespace asio = boost::asio;

// A context and the thread that runs it.
class Runner {
 public:
  Runner() : work(asio::make_work_guard(context)), thread([this] { context.run(); }) {}
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;
  ~Runner() {
    context.stop();
    thread.join();
  }

  asio::io_context context;

 private:
  asio::executor_work_guard<asio::io_context::executor_type> work;
  std::thread thread;
};

Runner& AsioRunner() {
  static Runner runner;
  return runner;
}

void StartAsio(asio::steady_timer& timer) {
  timer.expires_after(std::chrono::milliseconds(FarTimeoutMs()));
  timer.async_wait([](const boost::system::error_code& /*error*/) {});
}

void QueueAsio(size_t count) {
  Runner& runner = AsioRunner();  // first, so destroyed last
  static std::vector<asio::steady_timer> queued;
  while (queued.size() < count) {
    queued.emplace_back(runner.context);
    StartAsio(queued.back());
  }
}

// Stopping passes the callback to the context's thread.
void AsioStartStop(benchmark::State& state, size_t queued) {
  QueueAsio(queued);
  asio::steady_timer timer(AsioRunner().context);
  const std::chrono::milliseconds timeout(FarTimeoutMs());
  for (auto _ : state) {
    timer.expires_after(timeout);
    timer.async_wait([](const boost::system::error_code& /*error*/) {});
    timer.cancel();
  }
}

void AsioDueAtOnce(benchmark::State& state, size_t count) {
  for (auto _ : state) {
    Firing firing(count);
    std::vector<asio::steady_timer> timers;
    const auto due = Clock::now() + std::chrono::milliseconds(20);
    for (size_t i = 0; i < count; ++i) {
      timers.emplace_back(AsioRunner().context, due);
      timers.back().async_wait(
          [&firing](const boost::system::error_code& /*error*/) { firing.Fired(); });
    }
    asio::post(AsioRunner().context, [&firing] { firing.AllQueued(); });
    state.SetIterationTime(firing.WaitForSeconds());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
}

#endif

template <typename Function>
benchmark::internal::Benchmark* AddSized(const char* name, const char* who, Function function,
                                         size_t queued) {
  return Add(Sized(name, "queued", queued), who,
             [function, queued](benchmark::State& state) { function(state, queued); });
}

}  // namespace

void RegisterAll() {
  // First, since a child process has no thread that fires timers once this one has.
  constexpr size_t kQueued = 1000000;
  AddMemory("memory_of_1,000,000_queued_timers", "ours", [] { QueueOurs(kQueued); });
#ifdef TARSIO_BENCH_BOOST
  AddMemory("memory_of_1,000,000_queued_timers", "peer:Asio", [] { QueueAsio(kQueued); });
#endif
  constexpr int kFirings = 10;  // few, since most of their time is spent waiting and not measured
  for (const size_t count : Sizes{100, 1000, 10000}) {
    AddSized("fire_timers_due_at_once", "ours", OursDueAtOnce, count)
        ->UseManualTime()
        ->Iterations(kFirings);
#ifdef TARSIO_BENCH_BOOST
    AddSized("fire_timers_due_at_once", "peer:Asio", AsioDueAtOnce, count)
        ->UseManualTime()
        ->Iterations(kFirings);
#endif
  }
  for (const size_t queued : Sizes{10, 1000, 10000, 100000}) {
    AddSized("start_and_stop_a_timer", "ours", OursStartStop, queued)->UseRealTime();
#ifdef TARSIO_BENCH_BOOST
    AddSized("start_and_stop_a_timer", "peer:Asio", AsioStartStop, queued)->UseRealTime();
#endif
    Add(Sized("start_and_stop_a_timer", "queued", queued), "limit:clock+locks",
        [](benchmark::State& state) { ClockUnderMutex(state, 2); });
    Add(Sized("pass_with_no_timer_due", "queued", queued), "limit:clock+lock",
        [](benchmark::State& state) { ClockUnderMutex(state, 1); });
    AddSized("pass_with_no_timer_due", "ours", OursNoneDue, queued)->UseManualTime()->Iterations(1);
  }
}

}  // namespace tarsio_bench

// Overrides the C library's function, also for the shared library's timer thread.
extern "C" int nanosleep(const std::timespec* duration, std::timespec* rest) {
  errno = tarsio_bench::TimerPasses().Sleep(*duration, rest);
  return errno == 0 ? 0 : -1;
}
