// Leaving out schedules that reach a state known from another one does not change what can happen:
// small random programs have the same outcomes with every order.

#include <array>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "threads/explorer/explorer.h"

namespace {

using tarsio_test::Choose;
using tarsio_test::Explore;
using tarsio_test::NowMs;
using tarsio_test::Scenario;
using tarsio_test::Shared;
using tarsio_test::SleepMs;

enum Operation {
  kAppend,  // a letter to a string that a lock guards
  kTryAppend,
  kWait,
  kWaitUntil,
  kNotifyOne,
  kNotifyAll,
  kLoad,
  kStore,
  kAdd,
  kExchange,
  kRead,
  kWrite,
  kSleep,
  kClock,
  kChoose,
  kOperations
};

struct Step {
  Operation operation;
  size_t object;
};

using Program = std::vector<std::vector<Step>>;  // the steps of each thread

// Each program has few kinds of operations, so that its threads resemble each other.
Program RandomProgram(unsigned seed) {
  std::mt19937 random(seed);
  std::array<Operation, 3> kinds{};
  for (Operation& kind : kinds) kind = static_cast<Operation>(random() % kOperations);
  Program program(3);
  for (auto& steps : program) {
    for (size_t count = 1 + random() % 3; count > 0; --count) {
      steps.push_back({kinds[random() % kinds.size()], random() % 2});
    }
  }
  return program;
}

// The objects of one schedule, and what each thread has observed.
struct Machine {
  void Run(const std::vector<Step>& steps, size_t thread) {
    for (const Step& step : steps) seen[thread] += std::to_string(Do(step, thread)) + ' ';
  }

  int64_t Do(const Step& step, size_t thread) {
    const size_t object = step.object;
    std::unique_lock<std::mutex> lock(mutexes[object], std::defer_lock);
    const auto append = [&] {
      appended[object] += static_cast<char>('a' + thread);
      return static_cast<int64_t>(appended[object].size());
    };
    switch (step.operation) {
      case kAppend:
        lock.lock();
        return append();
      case kTryAppend:
        return lock.try_lock() ? append() : 0;
      case kWait:
        lock.lock();
        changed[object].wait(lock);
        return append();
      case kWaitUntil:
        lock.lock();
        return static_cast<int64_t>(changed[object].wait_for(lock, std::chrono::milliseconds(2)));
      case kNotifyOne:
        lock.lock();
        changed[object].notify_one();
        return 0;
      case kNotifyAll:
        changed[object].notify_all();
        return 0;
      case kLoad:
        return atomics[object];
      case kStore:
        atomics[object] = static_cast<int>(thread) + 1;
        return 0;
      case kAdd:
        return atomics[object].fetch_add(10);
      case kExchange:
        return atomics[object].exchange(static_cast<int>(thread) + 4);
      case kRead:
        return shared[object];
      case kWrite:
        return shared[object] = static_cast<int>(thread) + 1;
      case kSleep:
        SleepMs(1 + static_cast<int64_t>(object));
        return 0;
      case kClock:
        return NowMs() % 1000;
      case kChoose:
      case kOperations:
        return Choose(2);
    }
    return 0;
  }

  std::string Outcome() const {
    std::string outcome = appended[0] + ' ' + appended[1];
    for (const std::string& thread : seen) outcome += '|' + thread;
    return outcome;
  }

  std::array<std::mutex, 2> mutexes;
  std::array<std::condition_variable, 2> changed;
  std::array<std::string, 2> appended;
  std::array<std::atomic<int>, 2> atomics{};
  std::array<Shared<int>, 2> shared;
  std::array<std::string, 3> seen;
};

struct Outcomes {
  std::set<std::string> all;
  uint64_t schedules = 0;
};

Outcomes OutcomesOf(const Program& program, int bound, int spurious, bool everyOrder) {
  Outcomes outcomes;
  std::unique_ptr<Machine> machine;
  Scenario scenario;
  scenario.bound = bound;
  scenario.spurious = spurious;
  scenario.everyOrder = everyOrder;
  scenario.body = [&] {
    machine = std::make_unique<Machine>();
    std::thread second([&] { machine->Run(program[1], 1); });
    std::thread third([&] { machine->Run(program[2], 2); });
    machine->Run(program[0], 0);
    second.join();
    third.join();
  };
  scenario.after = [&] {
    outcomes.all.insert(machine->Outcome());
    machine.reset();
    return true;
  };
  // If the schedule did not run to its end, the explorer has freed its memory.
  scenario.reset = [&] { static_cast<void>(machine.release()); };
  scenario.mayBlock = [&] {
    outcomes.all.insert(machine->Outcome() + " blocked");
    return true;
  };
  const auto result = Explore(scenario);
  EXPECT_EQ(result.failure, "");
  outcomes.schedules = result.schedules;
  return outcomes;
}

TEST(ExplorerReduction, SameOutcomes) {
  constexpr unsigned kPrograms = 100;
  uint64_t reduced = 0;
  uint64_t all = 0;
  for (unsigned seed = 0; seed < kPrograms; ++seed) {
    const Program program = RandomProgram(seed);
    for (int bound = 0; bound <= 3; ++bound) {
      const int spurious = seed % 4 == 0 ? 1 : 0;
      const Outcomes expected = OutcomesOf(program, bound, spurious, true);
      const Outcomes actual = OutcomesOf(program, bound, spurious, false);
      EXPECT_EQ(actual.all, expected.all) << "program " << seed << ", bound " << bound;
      all += expected.schedules;
      reduced += actual.schedules;
    }
  }
  std::cout << reduced << " of " << all << " schedules\n";
}

}  // namespace
