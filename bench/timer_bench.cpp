// Timers: started and stopped while many are queued, looked over while none is due, and fired.

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

// Spread over the second hour from now, so that none is due while the program runs.
unsigned long long FarTimeoutMs() {
  static std::mt19937 random(1);
  return kHourMs + random() % kHourMs;
}

// Queues timers until there are `count`. They stay queued, so benchmarks go from few to many.
void QueueOurs(size_t count) {
  // Never destroyed: a started timer must not be when the manager has ended.
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

// What the thread that fires timers needs of the processor from when all are queued, and none is
// due yet, until the last has been fired.
class Firing {
 public:
  explicit Firing(size_t expected) : left(expected) {}

  // On that thread, before any is fired.
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
    // Started by the callback of one, which returns when all are due in the next pass.
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

// The passes of the timer thread, seen from outside: each lies between two of its sleeps. They are
// cut short meanwhile, for it is the pass that is measured, and not how a processor that has been
// idle for 5 ms finds its caches.
class Passes {
 public:
  // On the timer thread.
  void Watch() { watched = true; }
  // In place of a sleep of `duration`.
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

  // The median time of those within a while; 0 if there were none.
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
  static thread_local Clock::time_point passBegin;  // none if the sleep before was not cut short
  std::atomic<bool> recording{false};
  std::mutex mutex;  // guards seconds
  std::vector<double> seconds;
};

thread_local bool Passes::watched = false;
thread_local Clock::time_point Passes::passBegin;

Passes& TimerPasses() {
  static auto& passes = *new Passes;  // the timer thread may outlive what is static
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
    if (seconds == 0) state.SkipWithError("no pass was seen");
    state.SetIterationTime(seconds);
  }
}

// The least of a start, a stop or a pass: to read the clock under a lock.
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

// A context with the thread that runs it.
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

// Its stop hands the callback to the thread of the context.
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
  constexpr int kFirings = 10;  // most of their time goes by in waiting, and is not measured
  for (const size_t count : Sizes{100, 1000, 10000}) {
    AddSized("timer_due_at_once", "ours", OursDueAtOnce, count)
        ->UseManualTime()
        ->Iterations(kFirings);
#ifdef TARSIO_BENCH_BOOST
    AddSized("timer_due_at_once", "peer:Asio", AsioDueAtOnce, count)
        ->UseManualTime()
        ->Iterations(kFirings);
#endif
  }
  for (const size_t queued : Sizes{10, 1000, 10000, 100000}) {
    AddSized("timer_start_stop", "ours", OursStartStop, queued)->UseRealTime();
#ifdef TARSIO_BENCH_BOOST
    AddSized("timer_start_stop", "peer:Asio", AsioStartStop, queued)->UseRealTime();
#endif
    Add(Sized("timer_start_stop", "queued", queued), "limit:clock+locks",
        [](benchmark::State& state) { ClockUnderMutex(state, 2); });
    Add(Sized("timer_none_due", "queued", queued), "limit:clock+lock",
        [](benchmark::State& state) { ClockUnderMutex(state, 1); });
    AddSized("timer_none_due", "ours", OursNoneDue, queued)->UseManualTime()->Iterations(1);
  }
}

}  // namespace tarsio_bench

// In front of the C library's, for the shared library's timer thread as well.
extern "C" int nanosleep(const std::timespec* duration, std::timespec* rest) {
  errno = tarsio_bench::TimerPasses().Sleep(*duration, rest);
  return errno == 0 ? 0 : -1;
}
