// Timers: started and stopped while many are queued, looked over while none is due, and fired.

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/timer.h"
#include "support/bench.h"

#ifdef TARSIO_BENCH_BOOST
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
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

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

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

// The time from the first callback to the last of timers that are all due at once.
class FiringTime {
 public:
  explicit FiringTime(size_t expected) : left(expected) {}

  // The callback of each timer, all called by one thread.
  void Fired() {
    if (!begun) {
      begun = true;
      first = Clock::now();
    }
    if (--left == 0) done.set_value(Clock::now() - first);
  }
  Clock::duration Wait() { return done.get_future().get(); }

 private:
  size_t left;
  bool begun = false;
  Clock::time_point first;
  std::promise<Clock::duration> done;
};

void OursDueAtOnce(benchmark::State& state, size_t count) {
  for (auto _ : state) {
    FiringTime firing(count);
    std::vector<std::shared_ptr<TsTimer>> timers;
    for (size_t i = 0; i < count; ++i) {
      timers.push_back(std::make_shared<TsTimer>(1, false));
      timers.back()->Init([&firing] { firing.Fired(); });
    }
    // Started on the timer thread itself, which goes on to the next pass when all are due.
    const auto starter = std::make_shared<TsTimer>(1, false);
    starter->Init([&timers] {
      for (const auto& timer : timers) timer->Start();
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
    });
    starter->Start();
    state.SetIterationTime(Seconds(firing.Wait()));
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
}

double ProcessorSeconds(clockid_t clock) {
  std::timespec time{};
  if (clock_gettime(clock, &time) != 0) std::abort();
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// What a thread that sleeps for 5 ms at a time needs of the processor per period, whatever it does
// in between.
void MeasureSleeper(benchmark::State& state, clockid_t thread) {
  constexpr auto kPeriod = std::chrono::milliseconds(5);
  constexpr int kPeriods = 100;
  for (auto _ : state) {
    const double before = ProcessorSeconds(thread);
    std::this_thread::sleep_for(kPeriods * kPeriod);
    state.SetIterationTime(ProcessorSeconds(thread) - before);
  }
  state.SetItemsProcessed(state.iterations() * kPeriods);
}

clockid_t ClockOfThisThread() {
  clockid_t clock{};
  if (pthread_getcpuclockid(pthread_self(), &clock) != 0) std::abort();
  return clock;
}

void OursNoneDue(benchmark::State& state, size_t queued) {
  QueueOurs(queued);
  std::promise<clockid_t> clock;
  const auto probe = std::make_shared<TsTimer>(1, false);
  probe->Init([&clock] { clock.set_value(ClockOfThisThread()); });
  probe->Start();
  MeasureSleeper(state, clock.get_future().get());
}

void BareSleeper(benchmark::State& state, size_t /*queued*/) {
  std::promise<clockid_t> clock;
  std::atomic<bool> running{true};
  std::thread sleeper([&] {
    clock.set_value(ClockOfThisThread());
    while (running) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  });
  MeasureSleeper(state, clock.get_future().get());
  running = false;
  sleeper.join();
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
    FiringTime firing(count);
    std::vector<asio::steady_timer> timers;
    const auto due = Clock::now() + std::chrono::milliseconds(20);
    for (size_t i = 0; i < count; ++i) {
      timers.emplace_back(AsioRunner().context, due);
      timers.back().async_wait(
          [&firing](const boost::system::error_code& /*error*/) { firing.Fired(); });
    }
    state.SetIterationTime(Seconds(firing.Wait()));
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
  for (const size_t count : {100, 1000, 10000}) {
    AddSized("timer_due_at_once", "ours", OursDueAtOnce, count)->UseManualTime();
#ifdef TARSIO_BENCH_BOOST
    AddSized("timer_due_at_once", "peer:Asio", AsioDueAtOnce, count)->UseManualTime();
#endif
  }
  for (const size_t queued : {10, 1000, 10000, 100000}) {
    AddSized("timer_start_stop", "ours", OursStartStop, queued)->UseRealTime();
#ifdef TARSIO_BENCH_BOOST
    AddSized("timer_start_stop", "peer:Asio", AsioStartStop, queued)->UseRealTime();
#endif
    AddSized("timer_none_due", "ours", OursNoneDue, queued)->UseManualTime()->Iterations(2);
    AddSized("timer_none_due", "limit:sleep", BareSleeper, queued)->UseManualTime()->Iterations(2);
  }
}

}  // namespace tarsio_bench
