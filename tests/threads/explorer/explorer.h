// Runs small multi-threaded scenarios under a scheduler that makes every choice itself, and visits
// all schedules up to a number of preemptions.
//
// Threads are fibers of one thread. The program replaces the functions of the C library that
// std::thread, the locks, the condition variables, sleeps and clocks call, and operator new. Each
// such call, and each operation of a std::atomic (atomic_points.h), is a point where another thread
// may continue. Memory is sequentially consistent; data races are the thread sanitizer's concern.
//
// A clock that only the explorer advances: when no thread can run, or as a preemption, a thread
// that waits with a deadline continues at that time.

#ifndef TARSIO_COMMON_TESTS_THREADS_EXPLORER_EXPLORER_H_
#define TARSIO_COMMON_TESTS_THREADS_EXPLORER_EXPLORER_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>

#include "threads/explorer/atomic_points.h"

namespace tarsio_test {

struct Scenario {
  // Runs as the first thread. A schedule fails if a condition of Require() is false, a thread
  // throws, no thread can continue, a thread is neither joined nor detached, or memory leaks.
  std::function<void()> body;
  // Preemptions of a schedule: switches away from a thread that could continue.
  int bound = 2;
  // Wake-ups without notification.
  int spurious = 0;
  // Thread starts and allocations that fail, in the scope of a Faults object.
  int faults = 0;
  // Whether every allocation is a point.
  bool allocationPoints = false;
  // Whether the end of a lock is a point: if objects may end there.
  bool unlockPoints = false;
  // Whether schedules are visited that differ only in the order of steps that do not concern each
  // other. Needed if threads share data that is not guarded by locks, atomic or Shared.
  bool everyOrder = false;
  // A schedule with more points does not end, it is assumed.
  uint64_t mostSteps = 50000;
  // Asked when threads are left that wait forever, but not for a lock: whether that is documented.
  std::function<bool()> mayBlock = nullptr;
  // Called after the last thread has ended. The schedule fails if the result is false.
  std::function<bool()> after = nullptr;
  // Called after each schedule, also one that ends in the middle of its work, to put back statics.
  std::function<void()> reset = nullptr;
};

struct Exploration {
  uint64_t schedules = 0;
  uint64_t known = 0;    // of these, those that ended in a state that had been visited before
  uint64_t blocked = 0;  // schedules that ended as documented by Scenario::mayBlock
  uint64_t deepest = 0;  // points of the longest schedule
  std::string failure;   // empty if no schedule failed
  std::string choices;   // of the failing schedule; for --schedule
  std::string trace;     // its steps, after Replay()
};

// Visits all schedules with 0, 1, ... Scenario::bound preemptions, until one fails.
Exploration Explore(const Scenario& scenario);

// Runs one schedule and notes its steps. `choices` is a list like "17=1 42=2": at step 17 the
// second possibility, at step 42 the third, otherwise the first one, which is to continue the
// thread.
Exploration Replay(const Scenario& scenario, const std::string& choices);

// Does so and fails the current test if a schedule fails, or if fewer than `atLeast` are visited.
// With the option --schedule=CHOICES runs that schedule only, and prints it. With --minutes=N adds
// one preemption, then draws schedules at random; all tests share the time.
Exploration Check(const Scenario& scenario, uint64_t atLeast);

// In a scenario:

// A variable that threads share without a lock.
template <typename T>
class Shared {
 public:
  // NOLINTNEXTLINE(google-explicit-constructor): as the variable
  Shared(T initial = {}) noexcept : value(initial) {}

  // NOLINTNEXTLINE(google-explicit-constructor): as the variable
  operator T() const {
    Access(version, false);
    return value;
  }
  T operator=(T newValue) {  // NOLINT(*-unconventional-assign-operator): as std::atomic
    Access(version, true);
    return value = newValue;
  }
  T operator++() { return *this = value + 1; }
  T operator--() { return *this = value - 1; }

 private:
  T value;
  mutable Version version;
};

// Ends the schedule as failed if the condition is false.
void Require(bool condition, const char* message);
// A point without an operation, for example before the last owner of an object goes.
void Point();
// Returns a number below `count`; all are tried.
int Choose(int count);
// The explorer's clock.
int64_t NowMs();
void SleepMs(int64_t duration);
// Sets the clock forward, as when the machine was asleep.
void PassTime(int64_t milliseconds);
// Allocations of this schedule that have not been freed.
int64_t MemoryInUse();

// Thread starts and allocations of this thread, and of those that it starts meanwhile, may fail.
class Faults {
 public:
  Faults();
  Faults(const Faults&) = delete;
  Faults& operator=(const Faults&) = delete;
  ~Faults();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_THREADS_EXPLORER_EXPLORER_H_
