// Ends the process in one of several ways while it logs.
//
//     log_exit_child MODE SEED
//
// Prints "MODE: leaving" on standard output and exits with status 0.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>

#include "common/blocking_queue.h"
#include "common/log.h"
#include "common/thread_pool.h"
#include "support/gate.h"

namespace {

using tarsio::Log;
using tarsio_test::Gate;

using Random = std::mt19937_64;

const char* mode = "";

void Leave() {
  std::printf("%s: leaving\n", mode);
  std::fflush(stdout);
}

[[noreturn]] void Fail(const char* what) {
  std::printf("%s\n", what);
  std::fflush(stdout);
  std::_Exit(1);
}

// Never destroyed: other threads use the object until the process has ended.
template <typename T>
T& Lasting() {
  static auto* const object = new T();
  return *object;
}

// Owns memory that must not be used after its destruction.
class Sink : public tarsio::Logger {
 public:
  Sink() : last(new std::string) {}
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  ~Sink() override {
    delete last;
    last = nullptr;
  }
  void DoOutput(const char* line) override {
    if (last == nullptr) Fail("a line after the sink's end");
    const std::lock_guard<std::mutex> lock(Lasting<std::mutex>());
    *last = line;
    if (++lines > 10) Lasting<Gate>().Open();
  }

 private:
  std::string* last;
  int lines = 0;
};

void Sleep(Random& random) {
  std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
}

void EndWhileTasksThrow(Random& random) {
  Log::GetInstance().SetLogger(std::make_unique<Sink>());
  Lasting<std::shared_ptr<tarsio::ThreadPool>>() =
      std::make_shared<tarsio::ThreadPool>("p", 2, 0, 8);
  std::thread([] {
    for (;;) {  // until the process ends
      Lasting<std::shared_ptr<tarsio::ThreadPool>>()->SubmitTask(
          [] { throw std::runtime_error("a message that needs an allocation"); });
    }
  }).detach();
  Lasting<Gate>().Wait();
  Sleep(random);
  Leave();
}

struct Full {
  tarsio::BlockingQueue<int> queue{0};
};

// Each refusal is reported with a cached function name.
void EndWhileAQueueRefuses(Random& random) {
  Log::GetInstance().SetLogger(std::make_unique<Sink>());
  Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_WARN);
  std::thread([] {
    for (;;) static_cast<void>(Lasting<Full>().queue.Push(1, -1));
  }).detach();
  Lasting<Gate>().Wait();
  Sleep(random);
  Leave();
}

struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() {
    TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "dropped");
    Leave();
  }
};

void EndWithALineAfterTheLogsEnd(Random& /*random*/) {
  static const LogsWhenDestroyed olderThanTheLog;
  Log::GetInstance().SetLogger(std::make_unique<Sink>());
}

void EndInTheSink(Random& /*random*/) {
  class Exits : public tarsio::Logger {
   public:
    void DoOutput(const char* /*line*/) override {
      Leave();
      std::exit(0);
    }
  };
  Log::GetInstance().SetLogger(std::make_unique<Exits>());
  TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "the last line");
}

void EndWhileTheSinkIsStuck(Random& /*random*/) {
  class Stuck : public tarsio::Logger {
   public:
    void DoOutput(const char* /*line*/) override {
      Lasting<Gate>().Open();
      for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
    }
  };
  Log::GetInstance().SetLogger(std::make_unique<Stuck>());
  std::thread([] { TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "never written"); }).detach();
  Lasting<Gate>().Wait();
  Leave();
}

const struct {
  const char* name;
  void (*run)(Random& random);
} kModes[] = {{"tasks_throw", EndWhileTasksThrow},
              {"queue_refuses", EndWhileAQueueRefuses},
              {"line_after_the_end", EndWithALineAfterTheLogsEnd},
              {"exit_in_the_sink", EndInTheSink},
              {"sink_stuck", EndWhileTheSinkIsStuck}};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  Random random(std::strtoull(argv[2], nullptr, 10));
  for (const auto& row : kModes) {
    if (argv[1] != std::string(row.name)) continue;
    mode = row.name;
    row.run(random);
    return 0;
  }
  return 2;
}
