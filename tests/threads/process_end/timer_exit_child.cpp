// Ends the process in one of several ways while its timers run.
//
//     timer_exit_child MODE SEED
//
// Prints "MODE: leaving" and returns 0 from main(), whatever the timers do.

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/timer.h"
#include "support/gate.h"

namespace {

using component::TsTimer;
using tarsio_test::Gate;

using Random = std::mt19937_64;

constexpr unsigned long long kHour = 3600000;
constexpr bool kOnce = false;
constexpr bool kRepeating = true;

std::shared_ptr<TsTimer> Started(unsigned long long timeoutMs, bool repeating,
                                 std::function<void()> action) {
  auto timer = std::make_shared<TsTimer>(timeoutMs, repeating);
  timer->Init(std::move(action));
  timer->Start();
  return timer;
}

void Sleep(std::chrono::microseconds time) { std::this_thread::sleep_for(time); }

// Never destroyed: actions, and timers marked started, may outlive the statics.
template <typename T>
T& Lasting() {
  static auto* const object = new T();
  return *object;
}

void EndAtARandomMoment(Random& random) {
  auto& timers = Lasting<std::vector<std::shared_ptr<TsTimer>>>();
  for (unsigned long long timeout = 1; timeout <= 20; ++timeout) {
    timers.push_back(Started(timeout, kRepeating, [] { Sleep(std::chrono::microseconds(100)); }));
  }
  Sleep(std::chrono::microseconds(random() % 40000));
}

void EndWithAnActionInProgress(Random& random) {
  Lasting<std::shared_ptr<TsTimer>>() = Started(1, kRepeating, [] {
    Lasting<Gate>().Open();
    Sleep(std::chrono::milliseconds(20));
  });
  Lasting<Gate>().Wait();
  Sleep(std::chrono::microseconds(random() % 15000));
}

void EndRightAfterTheFirstStart(Random& random) {
  const auto timer = Started(1 + random() % 5, random() % 2 == 0, [] {});
  // Nothing else: the timer thread may not even have started.
}

void EndWhileAnotherThreadStartsAndStopsTimers(Random& random) {
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
        if (own() % 64 == 0) Sleep(std::chrono::microseconds(own() % 500));
      }
    }).detach();
  }
  Lasting<Gate>().Wait();
  Sleep(std::chrono::microseconds(random() % 20000));
}

void EndWithTimersThatOnlyTheManagerOwns(Random& random) {
  for (unsigned long long timeout = 1; timeout <= 10; ++timeout) {
    Started(timeout, kRepeating, [] {});
    Started(timeout * 3, kOnce, [] {});
    Started(kHour, kOnce, [] {});
  }
  Sleep(std::chrono::microseconds(random() % 20000));
}

// Stops a timer in its destructor.
struct StopOnExit {
  explicit StopOnExit(std::shared_ptr<TsTimer> stopped) : timer(std::move(stopped)) {}
  StopOnExit(const StopOnExit&) = delete;
  StopOnExit& operator=(const StopOnExit&) = delete;
  ~StopOnExit() { timer->Stop(); }

  const std::shared_ptr<TsTimer> timer;
};

// Some timers have two entries, and some are owned by another timer's action. Entries and timers
// may be released in any order.
void EndWithTimersThatOwnEachOther(Random& random) {
  for (const unsigned long long timeout : {kHour, 3 * kHour}) {
    const auto twice = Started(timeout, kOnce, [] {});
    twice->SetState(false);
    twice->Start();
    const auto inner = Started(2 * kHour, kRepeating, [] {});
    Started(timeout, kRepeating, [inner] { inner->Stop(); });
    const auto stopped = Started(2 * kHour, kRepeating, [] {});
    Started(timeout, kRepeating, [stop = std::make_shared<StopOnExit>(stopped)] {});
  }
  Sleep(std::chrono::microseconds(random() % 10000));
}

// The other thread and the manager drop their references concurrently; either may be the last.
void EndWhileTimersAreDropped(Random& random) {
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
  Sleep(std::chrono::microseconds(random() % 5000));
}

const struct {
  const char* name;
  void (*run)(Random& random);
} kModes[] = {{"random_moment", EndAtARandomMoment},
              {"action_in_progress", EndWithAnActionInProgress},
              {"first_start", EndRightAfterTheFirstStart},
              {"start_and_stop", EndWhileAnotherThreadStartsAndStopsTimers},
              {"only_managers", EndWithTimersThatOnlyTheManagerOwns},
              {"own_each_other", EndWithTimersThatOwnEachOther},
              {"let_go", EndWhileTimersAreDropped}};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  Random random(std::strtoull(argv[2], nullptr, 10));
  for (const auto& mode : kModes) {
    if (argv[1] != std::string(mode.name)) continue;
    mode.run(random);
    std::printf("%s: leaving\n", mode.name);
    std::fflush(stdout);
    return 0;
  }
  return 2;
}
