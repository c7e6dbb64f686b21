// The threads of a schedule and the choices between them. For explorer.cpp and interceptors.cpp.

#ifndef TARSIO_COMMON_TESTS_THREADS_EXPLORER_SCHEDULER_H_
#define TARSIO_COMMON_TESTS_THREADS_EXPLORER_SCHEDULER_H_

#include <pthread.h>
#include <ucontext.h>

#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "threads/explorer/atomic_points.h"

namespace tarsio_test {

constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

// Where a schedule differs from the one without preemptions and faults.
struct Choice {
  uint64_t step;
  size_t chosen;
  size_t count;
};

// The limits of one schedule.
struct Limits {
  int preemptions;
  int spurious;
  int faults;
  bool allocationPoints;
  bool unlockPoints;
  uint64_t mostSteps;
};

class Scheduler {
 public:
  // How to choose: in depth-first order, at random, or as given by Replay().
  enum class Mode { kDepthFirst, kRandom, kReplay };

  // How a schedule ends: with its last thread, blocked as documented, with the process, in a state
  // that another schedule has reached as well, or failed.
  enum class Result { kDone, kBlocked, kProcessEnded, kKnown, kFailed };

  // ---- for the explorer ----

  // Runs one schedule.
  Result Run(const std::function<void()>& body, const Limits& scheduleLimits,
             const std::function<bool()>& mayBlock);
  void StartDepthFirst(bool leavesOutEqual);
  bool NextDepthFirst();  // false if all schedules have been visited
  void StartRandom(uint64_t seed);
  void StartReplay(std::map<uint64_t, size_t> choices);

  const std::string& Failure() const { return failure; }
  const std::string& Trace() const { return trace; }
  const std::vector<Choice>& Choices() const { return path; }
  uint64_t Steps() const { return step; }
  uint64_t Schedule() const { return schedule; }  // counts

  // ---- for the threads of a schedule ----

  // Whether the caller is such a thread, and not in the scheduler's own code.
  static bool Active() { return current != nullptr && !inside; }
  [[noreturn]] void Fail(const std::string& message);
  int64_t Now();
  void Access(Version& version, bool writes);
  void PassTime(int64_t nanoseconds) { now += nanoseconds; }
  void Point(const char* operation, const void* object);
  size_t Choose(size_t count);
  bool InjectFault();  // whether an operation that may fail does
  // Ends all other threads wherever they are. Their locks stay locked, and a join never returns.
  void KillOthers();
  // Ends the schedule, whatever the other threads are doing.
  [[noreturn]] void EndProcess() { Leave(Result::kProcessEnded); }

  void Lock(pthread_mutex_t* mutex);
  bool TryLock(pthread_mutex_t* mutex);
  void Unlock(pthread_mutex_t* mutex);
  bool Wait(const pthread_cond_t* condition, pthread_mutex_t* mutex, int64_t deadline);
  void Notify(const pthread_cond_t* condition, bool all);
  void End(const pthread_cond_t* condition);
  void SleepUntil(int64_t deadline);
  pthread_t Start(void* (*routine)(void*), void* argument);
  void Join(pthread_t handle);
  void Detach(pthread_t handle);
  pthread_t Self() const { return firstHandle + current->number; }
  static void AllowFaults(bool allowed);
  bool AllocationPoints() const { return limits.allocationPoints; }

 private:
  // As the C++ runtime keeps it for each thread.
  struct ExceptionState {
    void* caught = nullptr;
    unsigned int uncaught = 0;
  };

  // jmp_buf, since swapcontext() calls the system each time.
  struct Context {
    ucontext_t start{};
    bool started = false;
    std::jmp_buf place{};
    ExceptionState exceptions;
  };

  struct Thread {
    enum class State { kReady, kLocking, kWaiting, kSleeping, kJoining, kDone, kKilled };

    State state = State::kReady;
    const void* object = nullptr;  // what the next operation is about
    const char* operation = "start";
    int64_t deadline = kNever;
    pthread_mutex_t* mutex = nullptr;  // of a wait
    uint64_t history = 0;              // a hash of all that it depends on
    bool notified = false;
    bool reaped = false;  // joined or detached
    bool mayFail = false;
    size_t number = 0;
    void* (*routine)(void*) = nullptr;
    void* argument = nullptr;
    int locksHeld = 0;
    Context context;
    char* stack = nullptr;
  };

  struct Option {
    Thread* thread;
    int cost;
  };

  // In its scope, allocations are the scheduler's own, and no thread is switched.
  class Inside {
   public:
    Inside() { inside = true; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() { inside = false; }
  };

  static constexpr size_t kMostThreads = 32;

  size_t Pick(size_t count, size_t usual);
  size_t Decide(size_t count, size_t usual);
  static void Observe(uint64_t value);
  uint64_t State() const;
  void LeaveIfKnown();
  static void Main();
  bool CanRun(const Thread& thread) const;
  size_t Options(bool freeSwitch);
  void Reschedule(bool freeSwitch = false);
  void Swap(Thread* next, bool leaves = false);
  void FinishFirstSwitch();
  [[noreturn]] void Leave(Result reason);
  void LeaveNobodyReady();
  void Acquire(pthread_mutex_t* mutex);
  void Release(pthread_mutex_t* mutex);
  void CheckMutex(pthread_mutex_t* mutex);
  Thread& Find(pthread_t handle);
  void Note(const Thread& thread);
  char* NewStack();

  // Static, so that operator new can use them before there is a scheduler.
  static inline Thread* current = nullptr;
  static inline bool inside = false;

  Mode mode = Mode::kDepthFirst;
  Limits limits{};
  std::vector<Choice> path;
  size_t position = 0;  // in `path`
  bool leavesOutKnown = false;
  std::unordered_map<uint64_t, int> known;  // the preemptions left at each state
  std::map<uint64_t, size_t> replayed;
  std::mt19937_64 random;

  std::deque<Thread> threads;
  uint64_t schedule = 0;
  uint64_t ended = 0;         // the histories of threads that have ended
  pthread_t firstHandle = 0;  // no two schedules use the same handles: a static may keep one
  std::vector<Thread*> live;
  std::vector<char*> freeStacks;
  Context explorer;
  const void* explorerStack = nullptr;
  size_t explorerStackSize = 0;
  std::array<Option, kMostThreads> options{};
  int64_t now = 0;
  uint64_t step = 0;
  std::function<bool()> blockIsDocumented;
  Result result = Result::kDone;
  std::string failure;
  std::string trace;
  std::map<const void*, size_t> names;
};

Scheduler& TheScheduler();

// Allocations of the threads of schedules that have not been freed.
int64_t LiveAllocations();
// Frees what the threads of this schedule have left.
void FreeAllocations();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_THREADS_EXPLORER_SCHEDULER_H_
