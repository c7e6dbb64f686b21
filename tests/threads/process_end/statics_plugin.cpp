#include <array>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include "common/log.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/gate.h"
#include "threads/process_end/started_timer.h"

namespace {

using component::TsTimer;
using tarsio::Log;
using tarsio::ThreadPool;
using tarsio_test::Gate;
using tarsio_test::Started;

constexpr unsigned long long kHour = 3600000;

struct Mode {
  const char* name;
  std::chrono::milliseconds action;  // duration of each action; 0: no timers
  bool tasks;
};
constexpr Mode kModes[] = {{"statics_long_actions", std::chrono::milliseconds(20), false},
                           {"statics_short_actions", std::chrono::milliseconds(1), false},
                           {"statics_tasks", std::chrono::milliseconds(0), true},
                           {"statics_all", std::chrono::milliseconds(1), true}};

void Say(const Mode& mode, const char* what) {
  std::printf("%s: %s\n", mode.name, what);
  std::fflush(stdout);
}

// Never destroyed: other threads may use it until the process has ended.
Gate& Fired() {
  static auto* const gate = new Gate;
  return *gate;
}

// Counts lines and writes none.
class Counter : public tarsio::Logger {
 public:
  explicit Counter(int& target) : lines(target) {}
  void DoOutput(const char* /*line*/) override { ++lines; }

 private:
  int& lines;
};

// Repeats `call` on a thread that is not the library's and may also be killed while it holds a
// lock.
template <typename Call>
void Repeat(Call call) {
  std::thread([call = std::move(call)] {
    for (;;) call();
  }).detach();
}

class Statics {
 public:
  Statics() { Log::GetInstance().SetLogger(std::make_unique<Counter>(lines)); }
  Statics(const Statics&) = delete;
  Statics& operator=(const Statics&) = delete;
  ~Statics();

  void Begin(const Mode& chosen, unsigned long long seed);

 private:
  const Mode* mode = nullptr;
  int lines = 0;
  std::array<std::shared_ptr<TsTimer>, 4> timers;
  std::shared_ptr<ThreadPool> pool;
};

void Statics::Begin(const Mode& chosen, unsigned long long seed) {
  mode = &chosen;
  std::mt19937_64 random(seed);
  if (chosen.action.count() > 0) {
    for (auto& timer : timers) {
      timer = Started(1 + random() % 3, true, [&chosen] {
        Fired().Open();
        std::this_thread::sleep_for(chosen.action);
      });
    }
    Fired().Wait();
    Repeat([timer = Started(kHour, false, [] {})] {
      timer->Start();
      timer->Stop();
    });
  }
  if (chosen.tasks) {
    pool = std::make_shared<ThreadPool>("statics", 2, 0, 4);
    Repeat([owned = pool] {
      for (int i = 0; i < 20; ++i) owned->SubmitTask([] {});
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
  }
  std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));
}

// On Windows all other threads have ended by now. On Linux the manager has ended, but the pool's
// workers are running.
Statics::~Statics() {
  if (mode == nullptr) return;
  if (mode->action.count() > 0) {
    Say(*mode, "timers");
    for (size_t i = 1; i < timers.size(); ++i) {
      timers[i]->Stop();
      timers[i]->Start();
      timers[i]->Stop();
    }
    for (auto& timer : timers) timer.reset();  // the first timer is still started
    Started(1, true, [] {})->Stop();
  }
  if (mode->tasks) {
    Say(*mode, "tasks");
    pool->SubmitTask([] {});
    Say(*mode, "wait");
    pool->Wait();
    Say(*mode, "shutdown");
    pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
    pool.reset();
  }
  TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "last words of %s", mode->name);
  Say(*mode, lines == 1 ? "statics destroyed" : "not logged");
}

Statics statics;

}  // namespace

// Starts the library's threads; the static's destructor goes on using them. Exported, since the
// plugin has no export list.
extern "C" void Begin(const char* mode, unsigned long long seed) {
  for (const Mode& known : kModes) {
    if (mode == std::string(known.name)) statics.Begin(known, seed);
  }
}
