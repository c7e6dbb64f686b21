// The explorer finds the faults of small faulty protocols, and none in the same protocols without
// the fault.

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "platform/platform.h"
#include "threads/explorer/explorer.h"
#include "threads/explorer/process_end.h"

namespace {

using tarsio_test::EndProcess;
using tarsio_test::Exploration;
using tarsio_test::Explore;
using tarsio_test::Point;
using tarsio_test::Replay;
using tarsio_test::Require;
using tarsio_test::Scenario;
using tarsio_test::Shared;
using tarsio_test::System;

// The smallest number of preemptions with which the protocol fails; its schedule is printed.
std::optional<int> SmallestBound(Scenario scenario, const std::string& failure) {
  for (scenario.bound = 0; scenario.bound <= 2; ++scenario.bound) {
    const Exploration result = Explore(scenario);
    std::cout << result.schedules << " schedules with " << scenario.bound << " preemptions\n";
    if (result.failure.empty()) continue;
    const Exploration again = Replay(scenario, result.choices);
    std::cout << result.choices << '\n' << again.trace << result.failure << '\n';
    EXPECT_EQ(result.failure.substr(0, failure.size()), failure);
    EXPECT_EQ(again.failure, result.failure);
    return scenario.bound;
  }
  return std::nullopt;
}

std::optional<int> FailsWith(const std::function<void()>& body, const std::string& failure) {
  Scenario scenario{body};
  scenario.spurious = 1;
  scenario.reset = tarsio_test::ResetProcess;
  const std::optional<int> bound = SmallestBound(scenario, failure);
  scenario.everyOrder = true;
  EXPECT_EQ(SmallestBound(scenario, failure), bound);
  return bound;
}

// A slot for one element.
template <bool kNotifies, bool kChecksUnderLock, bool kLoops>
void Slot() {
  std::mutex mutex;
  std::condition_variable filled;
  std::atomic<bool> full{false};
  std::thread consumer([&] {
    if (!kChecksUnderLock && full) return;
    std::unique_lock<std::mutex> lock(mutex);
    if (!kChecksUnderLock || !kLoops) {
      if (!kChecksUnderLock || !full) filled.wait(lock);
    } else {
      while (!full) filled.wait(lock);
    }
    Require(full, "nothing to take");
  });
  {
    const std::lock_guard<std::mutex> lock(mutex);
    full = true;
    if (kNotifies) filled.notify_one();
  }
  consumer.join();
}

TEST(ExplorerFaults, None) { EXPECT_EQ((FailsWith(Slot<true, true, true>, "")), std::nullopt); }

TEST(ExplorerFaults, MissingNotify) {
  EXPECT_EQ((FailsWith(Slot<false, true, true>, "no thread can continue")), 1);
}

TEST(ExplorerFaults, CheckOutsideLock) {
  EXPECT_EQ((FailsWith(Slot<true, false, true>, "no thread can continue")), 1);
}

TEST(ExplorerFaults, NoLoopAroundWait) {
  EXPECT_EQ((FailsWith(Slot<true, true, false>, "nothing to take")), 1);
}

template <bool kSwapped>
void TwoLocks() {
  std::mutex first;
  std::mutex second;
  std::thread other([&] {
    const std::lock_guard<std::mutex> one(kSwapped ? second : first);
    const std::lock_guard<std::mutex> two(kSwapped ? first : second);
  });
  {
    const std::lock_guard<std::mutex> one(first);
    const std::lock_guard<std::mutex> two(second);
  }
  other.join();
}

TEST(ExplorerFaults, LockOrder) {
  EXPECT_EQ(FailsWith(TwoLocks<false>, ""), std::nullopt);
  EXPECT_EQ(FailsWith(TwoLocks<true>, "no thread can continue"), 1);
}

// One thread changes both halves of a name that another one reads.
template <bool kLocks>
void Name() {
  std::mutex mutex;
  Shared<int> first;
  Shared<int> second;
  const auto locked = [&] {
    return kLocks ? std::unique_lock<std::mutex>(mutex) : std::unique_lock<std::mutex>();
  };
  std::thread reader([&] {
    const auto lock = locked();
    const int half = first;
    Point();
    Require(half == second, "a torn name");
  });
  {
    const auto lock = locked();
    first = 1;
    second = 1;
  }
  reader.join();
}

TEST(ExplorerFaults, NameRace) {
  EXPECT_EQ(FailsWith(Name<true>, ""), std::nullopt);
  EXPECT_EQ(FailsWith(Name<false>, "a torn name"), 2);
}

// A worker that finds nothing to do leaves, and a submission starts a worker if there is none.
template <bool kLooksAgain>
void Retirement() {
  std::mutex mutex;
  int tasks = 0;
  int done = 0;
  bool working = true;
  const auto take = [&] {
    const std::lock_guard<std::mutex> lock(mutex);
    if (tasks == 0) return false;
    --tasks;
    ++done;
    return true;
  };
  const std::function<void()> work = [&] {
    for (bool leaves = false; !leaves;) {
      while (take()) {
      }
      const std::lock_guard<std::mutex> lock(mutex);
      leaves = !kLooksAgain || tasks == 0;
      working = !leaves;
    }
  };
  std::thread worker(work);
  bool startsWorker = false;
  {
    const std::lock_guard<std::mutex> lock(mutex);
    ++tasks;
    startsWorker = !working;
  }
  if (startsWorker) std::thread(work).join();
  worker.join();
  Require(done == 1, "a lost task");
}

TEST(ExplorerFaults, LostRearm) {
  EXPECT_EQ(FailsWith(Retirement<true>, ""), std::nullopt);
  EXPECT_EQ(FailsWith(Retirement<false>, "a lost task"), 2);
}

// A static locks at the end of a process on Windows, where other threads have been killed.
template <bool kAsks>
void LockAtEnd() {
  std::mutex mutex;
  std::atomic<int> count{0};
  const std::thread other([&] {
    const std::lock_guard<std::mutex> lock(mutex);
    ++count;
  });
  EndProcess(System::kWindows, [&] {
    if (kAsks && tarsio::platform::ProcessIsEnding()) return;
    const std::lock_guard<std::mutex> lock(mutex);
  });
}

TEST(ExplorerFaults, LockAtProcessEnd) {
  EXPECT_EQ(FailsWith(LockAtEnd<true>, ""), std::nullopt);
  EXPECT_EQ(FailsWith(LockAtEnd<false>, "no thread can continue"), 2);
}

}  // namespace
