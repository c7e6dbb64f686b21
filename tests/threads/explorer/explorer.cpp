#include "threads/explorer/explorer.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <iostream>
#include <map>
#include <random>
#include <sstream>
#include <utility>

#include "threads/explorer/scheduler.h"

namespace tarsio_test {

namespace {

using testing::UnitTest;

constexpr int64_t kMillisecond = 1000000;
constexpr int kEnough = 1000;  // preemptions or faults of a schedule without limits

// NOLINTBEGIN(*-non-const-global-variables): set by main()
struct CommandLine {
  std::string schedule;
  bool hasSchedule = false;
  int64_t minutes = 0;
} commandLine;

std::string program;
// NOLINTEND(*-non-const-global-variables)

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

bool IsNumber(const std::string& text) {
  return !text.empty() && text.size() < 7 &&
         text.find_first_not_of("0123456789") == std::string::npos;
}

// Returns why a schedule whose last thread has ended failed, or an empty string.
std::string CheckEnd(const Scenario& scenario, int64_t allocationsBefore) {
  if (scenario.after && !scenario.after()) return "wrong result of all threads";
  const int64_t left = LiveAllocations() - allocationsBefore;
  return left == 0 ? "" : std::to_string(left) + " allocations are not freed";
}

// Runs one schedule. Threads and memory that are left count as failures.
bool Visit(const Scenario& scenario, int bound, Exploration& result) {
  using Result = Scheduler::Result;
  Scheduler& scheduler = TheScheduler();
  const int64_t before = LiveAllocations();
  const Result end =
      scheduler.Run(scenario.body,
                    {bound, scenario.spurious, scenario.faults, scenario.allocationPoints,
                     scenario.unlockPoints, scenario.mostSteps},
                    scenario.mayBlock);
  ++result.schedules;
  result.blocked += end == Result::kBlocked ? 1 : 0;
  result.known += end == Result::kKnown ? 1 : 0;
  result.deepest = std::max(result.deepest, scheduler.Steps());
  result.failure = end == Result::kDone ? CheckEnd(scenario, before) : scheduler.Failure();
  if (end != Result::kDone && end != Result::kFailed) FreeAllocations();
  if (scenario.reset) scenario.reset();
  if (result.failure.empty()) return true;
  result.choices = ToString(scheduler.Choices());
  return false;
}

// Creates objects that are created once per process. Returns false if the schedule fails, except
// that memory is left.
bool WarmUp(const Scenario& scenario, Exploration& result) {
  TheScheduler().StartReplay({});
  Visit(scenario, 0, result);
  const bool passed = TheScheduler().Failure().empty();
  if (passed) result = {};
  result.trace = TheScheduler().Trace();
  return passed;
}

bool DepthFirst(const Scenario& scenario, int bound, Exploration& result, int64_t end = kNever) {
  result = {};
  TheScheduler().StartDepthFirst(!scenario.everyOrder);
  do {
    if (!Visit(scenario, bound, result)) return false;
  } while (TheScheduler().NextDepthFirst() && (end == kNever || std::time(nullptr) < end));
  return true;
}

bool Draw(const Scenario& scenario, int64_t end, Exploration& result) {
  std::random_device seed;
  while (std::time(nullptr) < end) {
    TheScheduler().StartRandom(seed());
    if (!Visit(scenario, kEnough, result)) return false;
  }
  return true;
}

void Report(const char* kind, const Exploration& result) {
  std::cout << kind << ": " << result.schedules << " schedules, " << result.known
            << " left out, at most " << result.deepest << " points, " << result.blocked
            << " blocked as documented\n";
}

// Fails the current test if a schedule failed. Shows its steps by a new process, since the schedule
// has left this one in the middle of its work.
void Expect(const Exploration& result) {
  if (result.failure.empty()) return;
  const testing::TestInfo& test = *UnitTest::GetInstance()->current_test_info();
  const std::string options = std::string(" --gtest_filter=") + test.test_suite_name() + '.' +
                              test.name() + " --schedule=\"" + result.choices + '"';
  std::cout.flush();
  // NOLINTNEXTLINE(cert-env33-c,concurrency-mt-unsafe): this program, and no other thread
  const int status = std::system(('"' + program + '"' + options).c_str());
  EXPECT_NE(status, 0) << "the schedule does not fail the second time";
  ADD_FAILURE() << result.failure << "\nexplorer" << options;
}

// Ends the process: the rest of the test expects all schedules.
[[noreturn]] void RunOneSchedule(const Scenario& scenario, const std::string& choices) {
  const Exploration result = Replay(scenario, choices);
  std::cout << result.trace << (result.failure.empty() ? "passed" : result.failure) << std::endl;
  std::_Exit(result.failure.empty() ? 0 : 1);
}

// One preemption more for half of the time, then schedules at random. All tests share the time.
void GoOn(const Scenario& scenario) {
  static const int64_t programStart = std::time(nullptr);
  static int64_t tests = 0;
  const int64_t start = std::time(nullptr);
  const int64_t end =
      std::max(start, programStart + commandLine.minutes * 60 * ++tests /
                                         UnitTest::GetInstance()->test_to_run_count());
  Exploration result;
  if (DepthFirst(scenario, scenario.bound + 1, result, start + (end - start) / 2)) {
    Draw(scenario, end, result);
  }
  Report("more", result);
  Expect(result);
}

}  // namespace

Exploration Explore(const Scenario& scenario) {
  Exploration result;
  if (!WarmUp(scenario, result)) return result;
  for (int bound = 0; bound <= scenario.bound; ++bound) {
    if (!DepthFirst(scenario, bound, result)) break;
  }
  return result;
}

Exploration Replay(const Scenario& scenario, const std::string& choices) {
  Exploration result;
  if (!WarmUp(scenario, result)) return result;
  TheScheduler().StartReplay(FromString(choices));
  Visit(scenario, kEnough, result);
  result.trace = TheScheduler().Trace();
  if (ToString(TheScheduler().Choices()) != choices) {
    result.failure += "\nthis is not the schedule \"" + choices + '"';
  }
  return result;
}

Exploration Check(const Scenario& scenario, uint64_t atLeast) {
  if (commandLine.hasSchedule) RunOneSchedule(scenario, commandLine.schedule);
  Exploration result = Explore(scenario);
  Report("all", result);
  Expect(result);
  EXPECT_GE(result.schedules, atLeast);
  const bool hasMore = scenario.bound > 0 && result.failure.empty();
  if (commandLine.minutes > 0 && hasMore) GoOn(scenario);
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

void PassTime(int64_t milliseconds) { TheScheduler().PassTime(milliseconds * kMillisecond); }

int64_t MemoryInUse() { return LiveAllocations(); }

void SleepMs(int64_t duration) {
  TheScheduler().SleepUntil(TheScheduler().Now() + duration * kMillisecond);
}

Faults::Faults() { Scheduler::AllowFaults(true); }
Faults::~Faults() { Scheduler::AllowFaults(false); }

}  // namespace tarsio_test

int main(int argc, char** argv) {
  tarsio_test::program = argv[0];
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
    } else if (option.rfind("--minutes=", 0) == 0 && tarsio_test::IsNumber(value)) {
      tarsio_test::commandLine.minutes = std::stoll(value);
    } else {
      std::cerr << "invalid option: " << option << '\n';
      return 2;
    }
  }
  return RUN_ALL_TESTS();
}
