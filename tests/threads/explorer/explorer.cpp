#include "threads/explorer/explorer.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <map>
#include <sstream>
#include <utility>

#include "threads/explorer/scheduler.h"

namespace tarsio_test {

namespace {

constexpr int64_t kMillisecond = 1000000;
constexpr int64_t kMinute = 60;
constexpr int kEnough = 1000;  // preemptions or faults of a schedule without limits

struct CommandLine {
  std::string schedule;
  bool hasSchedule = false;
  int64_t minutes = 0;
} commandLine;

// A list like "17=1 42=2": at step 17 the second possibility, at step 42 the third. At all other
// steps the thread continues, or the first one that can.
std::string ToString(const std::vector<Choice>& path) {
  std::string list;
  for (const Choice& choice : path) {
    if (choice.chosen == 0) continue;
    if (!list.empty()) list += ' ';
    list += std::to_string(choice.step) + '=' + std::to_string(choice.chosen);
  }
  return list;
}

std::map<uint64_t, size_t> FromString(const std::string& list) {
  std::map<uint64_t, size_t> choices;
  std::istringstream in(list);
  uint64_t step = 0;
  size_t chosen = 0;
  for (char equals = 0; in >> step >> equals >> chosen;) choices[step] = chosen;
  return choices;
}

// Runs one schedule. What it leaves behind counts as a failure.
bool Visit(const Scenario& scenario, int bound, Exploration& result) {
  Scheduler& scheduler = TheScheduler();
  const int64_t before = LiveAllocations();
  bool passed = scheduler.Run(
      scenario.body,
      {bound, scenario.spurious, scenario.faults, scenario.allocationPoints, scenario.unlockPoints},
      scenario.mayBlock);
  ++result.schedules;
  result.blocked += scheduler.Blocked() ? 1 : 0;
  result.deepest = std::max(result.deepest, scheduler.Steps());
  result.failure = scheduler.Failure();
  if (passed && !scheduler.Blocked()) {
    const int64_t left = LiveAllocations() - before;
    if (left != 0) result.failure = std::to_string(left) + " allocations are not freed";
    if (scenario.after && !scenario.after()) result.failure = "wrong result of all threads";
    passed = result.failure.empty();
  }
  if (!passed) result.choices = ToString(scheduler.Choices());
  return passed;
}

// Runs the schedule with these choices and notes its steps.
bool Replay(const Scenario& scenario, const std::string& choices, Exploration& result) {
  TheScheduler().StartReplay(FromString(choices));
  const bool passed = Visit(scenario, kEnough, result);
  result.trace = TheScheduler().Trace();
  return passed;
}

// Objects that are created once per process.
void WarmUp(const Scenario& scenario) {
  Exploration ignored;
  TheScheduler().StartDepthFirst();
  Visit(scenario, 0, ignored);
}

bool DepthFirst(const Scenario& scenario, int bound, Exploration& result, int64_t end = kNever) {
  result = {};
  TheScheduler().StartDepthFirst();
  do {
    if (!Visit(scenario, bound, result)) return false;
  } while (TheScheduler().NextDepthFirst() && (end == kNever || std::time(nullptr) < end));
  return true;
}

bool Draw(const Scenario& scenario, int64_t end, Exploration& result) {
  for (uint64_t seed = 1; std::time(nullptr) < end; ++seed) {
    TheScheduler().StartRandom(seed);
    if (!Visit(scenario, kEnough, result)) return false;
  }
  return true;
}

void Report(const char* kind, const Exploration& result) {
  std::cout << kind << ": " << result.schedules << " schedules, at most " << result.deepest
            << " points, " << result.blocked << " blocked as documented\n";
}

// Fails the current test if a schedule failed.
void Expect(const Exploration& result) {
  const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
  EXPECT_EQ(result.failure, "") << "explorer --gtest_filter=" << test.test_suite_name() << '.'
                                << test.name() << " --schedule=\"" << result.choices << "\"\n"
                                << result.trace;
}

// Visits schedules, and a failing one twice.
bool Examine(const Scenario& scenario, const std::function<bool(Exploration&)>& visit,
             Exploration& result) {
  if (visit(result)) return true;
  Exploration again;
  Replay(scenario, result.choices, again);
  EXPECT_EQ(again.failure, result.failure) << "the schedule fails differently the second time";
  result.trace = again.trace;
  return false;
}

}  // namespace

Exploration Explore(const Scenario& scenario) {
  WarmUp(scenario);
  Exploration result;
  for (int bound = 0; bound <= scenario.bound; ++bound) {
    const auto visit = [&](Exploration& all) { return DepthFirst(scenario, bound, all); };
    if (!Examine(scenario, visit, result)) break;
  }
  return result;
}

Exploration Check(const Scenario& scenario, uint64_t atLeast) {
  Exploration result;
  if (commandLine.hasSchedule) {
    WarmUp(scenario);
    const bool passed = Replay(scenario, commandLine.schedule, result);
    std::cout << result.trace << (passed ? "passed" : result.failure) << '\n';
    EXPECT_TRUE(passed);
    return result;
  }
  result = Explore(scenario);
  Report("all", result);
  Expect(result);
  EXPECT_GE(result.schedules, atLeast);
  if (commandLine.minutes > 0) {
    const int64_t end = std::time(nullptr) + commandLine.minutes * kMinute;
    Exploration more;
    const auto visit = [&](Exploration& all) {
      return DepthFirst(scenario, scenario.bound + 1, all, end) && Draw(scenario, end, all);
    };
    Examine(scenario, visit, more);
    Report("more", more);
    Expect(more);
  }
  return result;
}

void Require(bool condition, const char* message) {
  if (!condition) TheScheduler().Fail(message);
}

void Point() { TheScheduler().Point("continue", nullptr); }

int Choose(int count) {
  return static_cast<int>(TheScheduler().Choose(static_cast<size_t>(count)));
}

int64_t NowMs() { return TheScheduler().Now() / kMillisecond; }

void SleepMs(int64_t duration) {
  TheScheduler().SleepUntil(TheScheduler().Now() + duration * kMillisecond);
}

Faults::Faults() { TheScheduler().AllowFaults(true); }
Faults::~Faults() { TheScheduler().AllowFaults(false); }

}  // namespace tarsio_test

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  std::set_terminate([] {
    if (tarsio_test::Scheduler::Active()) tarsio_test::Require(false, "std::terminate is called");
    std::abort();
  });
  for (int i = 1; i < argc; ++i) {
    const std::string option = argv[i];
    const std::string value = option.substr(option.find('=') + 1);
    if (option.rfind("--schedule=", 0) == 0) {
      tarsio_test::commandLine.schedule = value;
      tarsio_test::commandLine.hasSchedule = true;
    } else if (option.rfind("--minutes=", 0) == 0) {
      tarsio_test::commandLine.minutes = std::stoll(value);
    } else {
      std::cerr << "unknown option: " << option << '\n';
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
