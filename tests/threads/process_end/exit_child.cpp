// Ends the process in one of several ways while it uses timers, a pool, a queue or the log.
//
//     exit_child MODE SEED
//
// Prints "MODE: leaving" and exits with status 0.

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/blocking_queue.h"
#include "common/log.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/gate.h"
#include "threads/process_end/started_timer.h"

namespace {

using component::TsTimer;
using tarsio::Log;
using tarsio_test::Gate;
using tarsio_test::Started;

using Random = std::mt19937_64;

constexpr unsigned long long kHour = 3600000;
constexpr bool kOnce = false;
constexpr bool kRepeating = true;

const char* mode = "";

void Leave() {
  std::printf("%s: leaving\n", mode);
  std::fflush(stdout);
}

void Sleep(uint64_t microseconds) {
  std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
}

// Never destroyed: other threads use the object until the process has ended.
template <typename T>
T& Lasting() {
  static auto* const object = new T();
  return *object;
}

// ---- timers ----

// Some timers are owned by the manager only.
void RandomMoment(Random& random) {
  auto& timers = Lasting<std::vector<std::shared_ptr<TsTimer>>>();
  for (unsigned long long timeout = 1; timeout <= 20; ++timeout) {
    timers.push_back(Started(timeout, kRepeating, [] { Sleep(100); }));
    Started(timeout, kRepeating, [] {});
    Started(timeout * 3, kOnce, [] {});
  }
  Sleep(random() % 40000);
}

void ActionInProgress(Random& random) {
  Lasting<std::shared_ptr<TsTimer>>() = Started(1, kRepeating, [] {
    Lasting<Gate>().Open();
    Sleep(20000);
  });
  Lasting<Gate>().Wait();
  Sleep(random() % 15000);
}

// The timer thread may not even have started.
void FirstStart(Random& random) {
  Started(1 + random() % 5, random() % 2 == 0, [] {});
}

void StartAndStop(Random& random) {
  for (int t = 0; t < 2; ++t) {
    std::thread([seed = random()] {
      Random own(seed);
      std::array<std::shared_ptr<TsTimer>, 8> timers;
      for (auto& timer : timers) {
        timer = std::make_shared<TsTimer>(1 + own() % 4, own() % 2 == 0);
        timer->Init([] { Lasting<Gate>().Open(); });
      }
      for (;;) {  // until the process ends
        TsTimer& timer = *timers[own() % timers.size()];
        own() % 2 == 0 ? timer.Start() : timer.Stop();
        if (own() % 64 == 0) Sleep(own() % 500);
      }
    }).detach();
  }
  Lasting<Gate>().Wait();
  Sleep(random() % 20000);
}

// The other thread and the manager drop their references concurrently; either may be the last.
void LetGo(Random& random) {
  auto& timers = Lasting<std::vector<std::shared_ptr<TsTimer>>>();
  for (int i = 0; i < 3000; ++i) timers.push_back(Started(kHour, kOnce, [] {}));
  std::thread([&timers] {
    for (std::shared_ptr<TsTimer>& timer : timers) {
      if (timer == timers[100]) Lasting<Gate>().Open();
      timer.reset();
      const auto next = std::chrono::steady_clock::now() + std::chrono::microseconds(5);
      while (std::chrono::steady_clock::now() < next) continue;
    }
  }).detach();
  Lasting<Gate>().Wait();
  Sleep(random() % 5000);
}

// ---- the log ----

// Owns memory that must not be used after its destruction.
class Sink : public tarsio::Logger {
 public:
  Sink() : last(std::make_unique<std::string>()) {}
  ~Sink() override { last.reset(); }
  void DoOutput(const char* line) override {
    if (last == nullptr) std::_Exit(1);
    const std::lock_guard<std::mutex> lock(Lasting<std::mutex>());
    *last = line;
    if (++lines > 10) Lasting<Gate>().Open();
  }

 private:
  std::unique_ptr<std::string> last;
  int lines = 0;
};

// Installs a sink that runs a function.
void LogTo(void (*function)()) {
  class Calling : public tarsio::Logger {
   public:
    explicit Calling(void (*target)()) : function(target) {}
    void DoOutput(const char* /*line*/) override { function(); }

   private:
    void (*const function)();
  };
  Log::GetInstance().SetLogger(std::make_unique<Calling>(function));
}

// Repeats `call`, which logs, until the process ends.
void KeepLogging(Random& random, void (*call)()) {
  Log::GetInstance().SetLogger(std::make_unique<Sink>());
  Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_WARN);
  std::thread([call] {
    for (;;) call();
  }).detach();
  Lasting<Gate>().Wait();
  Sleep(random() % 3000);
}

void TasksThrow(Random& random) {
  using Pool = std::shared_ptr<tarsio::ThreadPool>;
  static const auto pool = std::make_shared<tarsio::ThreadPool>("p", 2, 0, 8);
  Lasting<Pool>() = pool;
  KeepLogging(random, [] {
    Lasting<Pool>()->SubmitTask(
        [] { throw std::runtime_error("a message that needs an allocation"); });
  });
}

// Each refusal is reported with a cached function name.
void QueueRefuses(Random& random) {
  struct Full {
    tarsio::BlockingQueue<int> queue{0};
  };
  KeepLogging(random, [] { static_cast<void>(Lasting<Full>().queue.Push(1, -1)); });
}

// TsLog() does not need the log.
void LineAfterTheEnd(Random& /*random*/) {
  static bool printed = false;
  static const struct LogsWhenDestroyed {
    ~LogsWhenDestroyed() {
      TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "dropped");
      tarsio::TsLog(
          tarsio::LOG_LEVEL_FATAL, [](const char* /*line*/) { printed = true; },
          [] { return tarsio::LOG_LEVEL_FATAL; }, "", 0, "", "printed");
      if (!printed) std::_Exit(1);
    }
  } olderThanTheLog;
  Log::GetInstance().SetLogger(std::make_unique<Sink>());
}

void ExitInTheSink(Random& /*random*/) {
  LogTo([] {
    Leave();
    std::exit(0);
  });
  TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "the last line");
}

void SinkStuck(Random& /*random*/) {
  LogTo([] {
    Lasting<Gate>().Open();
    std::this_thread::sleep_for(std::chrono::hours(1));
  });
  std::thread([] { TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "never written"); }).detach();
  Lasting<Gate>().Wait();
}

const struct {
  const char* name;
  void (*run)(Random& random);
} kModes[] = {{"random_moment", RandomMoment},
              {"action_in_progress", ActionInProgress},
              {"first_start", FirstStart},
              {"start_and_stop", StartAndStop},
              {"let_go", LetGo},
              {"tasks_throw", TasksThrow},
              {"queue_refuses", QueueRefuses},
              {"line_after_the_end", LineAfterTheEnd},
              {"exit_in_the_sink", ExitInTheSink},
              {"sink_stuck", SinkStuck}};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  Random random(std::strtoull(argv[2], nullptr, 10));
  for (const auto& row : kModes) {
    if (argv[1] != std::string(row.name)) continue;
    mode = row.name;
    row.run(random);
    Leave();
    return 0;
  }
  return 2;
}
