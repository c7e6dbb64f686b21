#include "threads/explorer/scheduler.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#define TARSIO_TEST_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TARSIO_TEST_ASAN
#endif
#endif
#if defined(TARSIO_TEST_ASAN)
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>

// A schedule that fails or blocks leaves memory. The explorer counts that of all others.
// NOLINTNEXTLINE(*-reserved-identifier,*-naming): the runtime's name
extern "C" const char* __asan_default_options() { return "detect_leaks=0"; }
#endif

namespace tarsio_test {

namespace {

constexpr size_t kStackSize = size_t{1} << 18;
constexpr int64_t kEpoch = 1700000000LL * 1000000000;  // nanoseconds
constexpr uint64_t kRandomPreemption = 8;              // one in so many points
constexpr size_t kMostKnown = size_t{1} << 24;

// Events in the histories of threads.
enum : uint64_t { kStarted = 1, kNotified, kKilled, kEnded };

// A hash of two numbers; their order counts.
uint64_t Mix(uint64_t first, uint64_t second) {
  uint64_t hash = (first ^ (second * 0x9E3779B97F4A7C15U)) * 0xBF58476D1CE4E5B9U;
  hash ^= hash >> 32U;
  hash *= 0x94D049BB133111EBU;
  return hash ^ (hash >> 29U);
}

// In a field that nothing else uses, since the functions that do are replaced.
Version& VersionOf(pthread_mutex_t* mutex) {
  static_assert(sizeof(Version) == sizeof mutex->__data.__list);
  void* const unused = &mutex->__data.__list;
  return *static_cast<Version*>(unused);
}

}  // namespace

Scheduler& TheScheduler() {
  static Scheduler& scheduler = *new Scheduler;  // NOLINT(*-non-const-global-variables): not const
  return scheduler;
}

// ---- choices ----

void Scheduler::StartDepthFirst(bool leavesOutEqual) {
  mode = Mode::kDepthFirst;
  leavesOutKnown = leavesOutEqual;
  known.clear();
  path.clear();
}

bool Scheduler::NextDepthFirst() {
  while (!path.empty() && path.back().chosen + 1 == path.back().count) path.pop_back();
  if (path.empty()) return false;
  ++path.back().chosen;
  return true;
}

void Scheduler::StartRandom(uint64_t seed) {
  mode = Mode::kRandom;
  random.seed(seed);
}

void Scheduler::StartReplay(std::map<uint64_t, size_t> choices) {
  mode = Mode::kReplay;
  replayed = std::move(choices);
}

// Returns a number below `count`, at random mostly one below `usual`.
size_t Scheduler::Pick(size_t count, size_t usual) {
  const Inside here;
  ++step;
  if (step > limits.mostSteps) Fail("the schedule does not end");
  if (count == 1) return 0;
  size_t chosen = 0;
  switch (mode) {
    case Mode::kDepthFirst:
      if (position < path.size()) {
        if (path[position].count != count) Fail("the scenario is not deterministic");
        return path[position++].chosen;
      }
      ++position;
      break;
    case Mode::kRandom:
      chosen = random() % (random() % kRandomPreemption == 0 ? count : std::max<size_t>(usual, 1));
      break;
    case Mode::kReplay:
      if (const auto found = replayed.find(step); found != replayed.end()) chosen = found->second;
      if (chosen >= count) Fail("the schedule does not fit the scenario");
      break;
  }
  path.push_back({step, chosen, count});
  return chosen;
}

// A choice that the current thread notices.
size_t Scheduler::Decide(size_t count, size_t usual) {
  const size_t chosen = Pick(count, usual);
  Observe(chosen);
  return chosen;
}

size_t Scheduler::Choose(size_t count) { return Decide(count, count); }

bool Scheduler::InjectFault() {
  if (!current->mayFail || limits.faults == 0 || Decide(2, 1) == 0) return false;
  --limits.faults;
  const Inside here;
  if (mode == Mode::kReplay) trace += "      which fails\n";
  return true;
}

bool Scheduler::CanRun(const Thread& thread) const {
  switch (thread.state) {
    case Thread::State::kReady:
      return true;
    case Thread::State::kLocking: {
      // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): the object is a lock
      const auto& data = static_cast<const pthread_mutex_t*>(thread.object)->__data;
      const bool again =
          data.__kind == PTHREAD_MUTEX_RECURSIVE && data.__owner == static_cast<int>(thread.number);
      return data.__owner == 0 || again;
    }
    case Thread::State::kWaiting:
    case Thread::State::kSleeping:
      return thread.deadline <= now;
    case Thread::State::kJoining:
      // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): the object is a thread
      return static_cast<const Thread*>(thread.object)->state == Thread::State::kDone;
    case Thread::State::kDone:
    case Thread::State::kKilled:
      return false;
  }
  return false;
}

// Fills `options` and returns their number. The current thread comes first if it can continue; then
// the switches that cost nothing; then, if the limit allows, those that are preemptions.
size_t Scheduler::Options(bool freeSwitch) {
  size_t count = 0;
  const auto add = [&](Thread* thread, int cost) {
    if (cost <= limits.preemptions) options[count++] = {thread, cost};
  };
  const bool continues = CanRun(*current);
  if (continues) add(current, 0);
  const int cost = continues && !freeSwitch ? 1 : 0;
  int64_t nearest = kNever;
  for (Thread* thread : live) {
    if (thread != current && CanRun(*thread)) add(thread, cost);
    if (thread->deadline > now) nearest = std::min(nearest, thread->deadline);
  }
  // Time passes while a thread could run, or beyond the deadline of another: preemptions, too.
  const bool idle = count == 0;
  const auto isTimed = [this](const Thread* t) { return t->deadline != kNever && !CanRun(*t); };
  for (Thread* thread : live) {
    if (isTimed(thread) && idle && thread->deadline == nearest) add(thread, 0);
  }
  for (Thread* thread : live) {
    if (isTimed(thread) && !(idle && thread->deadline == nearest)) add(thread, 1);
  }
  return count;
}

// ---- equal states ----

// Two schedules have reached the same state if each thread has made the same observations. An
// object's version is the history of the thread that changed it last. So the order of two steps
// counts only if both concern the same object, and one of them changes it.
//
// This requires that each access to shared data is noted, or follows from the order of the others:
// memory that a lock guards, and reference counts.

// What the current thread does next may depend on `value`.
void Scheduler::Observe(uint64_t value) { current->history = Mix(current->history, value); }

void Scheduler::Access(Version& version, bool writes) {
  Observe(version.schedule == schedule ? version.hash : 0);
  if (writes) version = {current->history, schedule};
}

int64_t Scheduler::Now() {
  Observe(static_cast<uint64_t>(now));
  return now;
}

uint64_t Scheduler::State() const {
  uint64_t state = ended + static_cast<uint64_t>(now);
  for (const Thread* thread : live) state += Mix(thread->history, 0);
  // Which thread is current counts only if a switch is a preemption.
  return CanRun(*current) ? Mix(state, current->history) : state;
}

// Ends the schedule if another one has continued from this state, with as many preemptions left.
void Scheduler::LeaveIfKnown() {
  if (!leavesOutKnown || mode != Mode::kDepthFirst || position < path.size()) return;
  const Inside here;
  if (known.size() == kMostKnown) return;
  const auto [entry, isNew] = known.emplace(State(), limits.preemptions);
  if (!isNew && entry->second >= limits.preemptions) Leave(Result::kKnown);
  entry->second = limits.preemptions;
}

// ---- switching ----

// Lets one of the threads that can run continue, perhaps the caller.
void Scheduler::Reschedule(bool freeSwitch) {
  Observe(reinterpret_cast<uintptr_t>(current->operation));
  const size_t count = Options(freeSwitch);
  if (count == 0) LeaveNobodyReady();
  if (count > 1) LeaveIfKnown();
  size_t usual = 0;
  while (usual < count && options[usual].cost == 0) ++usual;
  const Option option = options[Pick(count, usual)];
  limits.preemptions -= option.cost;
  now = std::max(now, option.thread->deadline == kNever ? now : option.thread->deadline);
  if (mode == Mode::kReplay) Note(*option.thread);
  if (option.thread != current) Swap(option.thread, current->state == Thread::State::kDone);
  current->deadline = kNever;
}

// No thread can ever continue.
void Scheduler::LeaveNobodyReady() {
  inside = true;
  const bool done = live.empty();
  if (done) {
    for (const Thread& thread : threads) {
      if (!thread.reaped) Fail("a thread is neither joined nor detached");
    }
  } else {
    const auto locks = [](const Thread* t) { return t->state == Thread::State::kLocking; };
    if (blockIsDocumented && std::none_of(live.begin(), live.end(), locks) && blockIsDocumented()) {
      Leave(Result::kBlocked);
    }
    std::string message = "no thread can continue:";
    for (const Thread* thread : live) {
      message += " thread " + std::to_string(thread->number) + " in " + thread->operation + ";";
    }
    Fail(message);
  }
  Leave(Result::kDone);
}

void Scheduler::Fail(const std::string& message) {
  inside = true;
  failure = message;
  Leave(Result::kFailed);
}

void Scheduler::Leave(Result reason) {
  inside = true;
  result = reason;
  Swap(nullptr, true);
  std::abort();
}

void Scheduler::KillOthers() {
  for (Thread* thread : live) {
    if (thread == current) continue;
    thread->state = Thread::State::kKilled;
    thread->operation = "killed";
    thread->history = Mix(thread->history, kKilled);
    thread->deadline = kNever;
  }
}

// Continues `next`, or the explorer if null. Returns when the caller is continued.
void Scheduler::Swap(Thread* next, [[maybe_unused]] bool leaves) {
  Context& from = current == nullptr ? explorer : current->context;
  Context& to = next == nullptr ? explorer : next->context;
  void* const globals = abi::__cxa_get_globals();
  std::memcpy(&from.exceptions, globals, sizeof(ExceptionState));
  std::memcpy(globals, &to.exceptions, sizeof(ExceptionState));
  current = next;
#if defined(TARSIO_TEST_ASAN)
  void* fakeStack = nullptr;
  __sanitizer_start_switch_fiber(leaves ? nullptr : &fakeStack,
                                 next == nullptr ? explorerStack : next->stack,
                                 next == nullptr ? explorerStackSize : kStackSize);
#endif
  if (_setjmp(from.place) == 0) {
    if (std::exchange(to.started, true)) ::_longjmp(to.place, 1);
    ::setcontext(&to.start);
  }
#if defined(TARSIO_TEST_ASAN)
  __sanitizer_finish_switch_fiber(fakeStack, nullptr, nullptr);
#endif
}

// The first function of each thread.
void Scheduler::Main() {
  Scheduler& scheduler = TheScheduler();
  scheduler.FinishFirstSwitch();
  try {
    current->routine(current->argument);
  } catch (const std::exception& error) {
    scheduler.Fail(std::string("a thread throws: ") + error.what());
  }
  Thread* const self = current;
  inside = true;
  self->state = Thread::State::kDone;
  scheduler.ended += Mix(self->history, kEnded);
  scheduler.live.erase(std::find(scheduler.live.begin(), scheduler.live.end(), self));
  scheduler.freeStacks.push_back(self->stack);
  inside = false;
  scheduler.Reschedule();
}

void Scheduler::FinishFirstSwitch() {
#if defined(TARSIO_TEST_ASAN)
  const void* stack = nullptr;
  size_t size = 0;
  __sanitizer_finish_switch_fiber(nullptr, &stack, &size);
  if (explorerStack == nullptr) {
    explorerStack = stack;
    explorerStackSize = size;
  }
#endif
}

char* Scheduler::NewStack() {
  if (freeStacks.empty()) {
    void* const memory = ::mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) std::abort();
    freeStacks.push_back(static_cast<char*>(memory));
  }
  char* const stack = freeStacks.back();
  freeStacks.pop_back();
#if defined(TARSIO_TEST_ASAN)
  __asan_unpoison_memory_region(stack, kStackSize);
#endif
  return stack;
}

Scheduler::Result Scheduler::Run(const std::function<void()>& body, const Limits& scheduleLimits,
                                 const std::function<bool()>& mayBlock) {
  limits = scheduleLimits;
  blockIsDocumented = mayBlock;
  for (const Thread* thread : live) freeStacks.push_back(thread->stack);
  live.clear();
  ++schedule;
  ended = 0;
  firstHandle += threads.size();
  threads.clear();
  names.clear();
  inside = false;
  trace.clear();
  failure.clear();
  step = 0;
  now = kEpoch;
  explorer.started = true;
  position = 0;
  if (mode != Mode::kDepthFirst) path.clear();
  const auto call = [](void* function) -> void* {
    (*static_cast<const std::function<void()>*>(function))();
    return nullptr;
  };
  Start(call, const_cast<std::function<void()>*>(&body));  // NOLINT(*-const-cast): a C interface
  threads.front().reaped = true;
  Swap(&threads.front());
  inside = false;
  return result;
}

// ---- operations ----

void Scheduler::Note(const Thread& thread) {
  const Inside here;
  trace += "  " + std::to_string(step) + ": thread " + std::to_string(thread.number) + " " +
           thread.operation;
  if (thread.object != nullptr) {
    trace += " #" + std::to_string(names.emplace(thread.object, names.size() + 1).first->second);
  }
  trace += '\n';
}

// Nothing happens here, but other threads may continue first.
void Scheduler::Point(const char* operation, const void* object) {
  // With the address sanitizer, an object that has been freed is noticed here.
  if (object != nullptr) static_cast<void>(*static_cast<const volatile char*>(object));
  current->operation = operation;
  current->object = object;
  Reschedule();
}

void Scheduler::CheckMutex(pthread_mutex_t* mutex) {
  Version& version = VersionOf(mutex);
  if (version.schedule > schedule) Fail("a lock is used after its end");
  if (version.schedule == schedule) return;
  // A static lock. A thread of an earlier schedule may have held it when the schedule was left.
  version = {0, schedule};
  mutex->__data.__owner = 0;
  mutex->__data.__count = 0;
}

void Scheduler::Acquire(pthread_mutex_t* mutex) {
  Access(VersionOf(mutex), false);
  mutex->__data.__owner = static_cast<int>(current->number);
  ++current->locksHeld;
  ++mutex->__data.__count;
}

void Scheduler::Release(pthread_mutex_t* mutex) {
  CheckMutex(mutex);
  if (mutex->__data.__owner != static_cast<int>(current->number)) {
    Fail("a thread unlocks a lock that it does not hold");
  }
  --current->locksHeld;
  if (--mutex->__data.__count > 0) return;
  VersionOf(mutex) = {current->history, schedule};
  mutex->__data.__owner = 0;
}

void Scheduler::Lock(pthread_mutex_t* mutex) {
  CheckMutex(mutex);
  current->state = Thread::State::kLocking;
  Point("lock", mutex);
  current->state = Thread::State::kReady;
  Acquire(mutex);
}

bool Scheduler::TryLock(pthread_mutex_t* mutex) {
  CheckMutex(mutex);
  Point("try_lock", mutex);
  if (mutex->__data.__owner != 0) return false;
  Acquire(mutex);
  return true;
}

// A thread that is suspended here could as well be suspended before its next operation, unless what
// it does until then concerns others, for example the end of an object.
void Scheduler::Unlock(pthread_mutex_t* mutex) {
  Point("unlock", mutex);  // a thread may be suspended, or killed, while it holds the lock
  Release(mutex);
  if (!limits.unlockPoints) return;
  current->operation = "unlocked";
  current->object = mutex;
  Reschedule();
}

// Returns false if the wait ended by its deadline.
bool Scheduler::Wait(const pthread_cond_t* condition, pthread_mutex_t* mutex, int64_t deadline) {
  Point("wait", condition);
  Release(mutex);
  const bool wakesUp = limits.spurious > 0 && Decide(2, 1) == 1;
  if (wakesUp) {
    --limits.spurious;
    current->state = Thread::State::kLocking;
    current->operation = "wake up without notification, lock";
    current->object = mutex;
    Reschedule(true);
  } else {
    current->state = Thread::State::kWaiting;
    current->operation = deadline == kNever ? "wait" : "wait until its deadline";
    current->mutex = mutex;
    current->notified = false;
    current->deadline = deadline;
    Reschedule();
    if (!current->notified) {
      current->state = Thread::State::kReady;
      Lock(mutex);
      return false;
    }
  }
  current->state = Thread::State::kReady;
  Acquire(mutex);
  return true;
}

void Scheduler::Notify(const pthread_cond_t* condition, bool all) {
  Point(all ? "notify_all" : "notify_one", condition);
  std::array<Thread*, kMostThreads> waiting{};
  size_t count = 0;
  for (Thread* thread : live) {
    const bool waits = thread->state == Thread::State::kWaiting && thread->object == condition;
    if (waits) waiting[count++] = thread;
  }
  if (count == 0) return;
  const size_t first = all ? 0 : Decide(count, count);
  const size_t end = all ? count : first + 1;
  for (size_t i = first; i < end; ++i) {
    Thread& thread = *waiting[i];
    thread.state = Thread::State::kLocking;
    thread.operation = "wake up, lock";
    thread.object = thread.mutex;
    thread.deadline = kNever;
    thread.notified = true;
    thread.history = Mix(thread.history, kNotified);
  }
}

void Scheduler::End(const pthread_cond_t* condition) {
  const auto waits = [condition](const Thread* thread) {
    return thread->state == Thread::State::kWaiting && thread->object == condition;
  };
  if (std::any_of(live.begin(), live.end(), waits)) {
    Fail("a condition variable ends while a thread waits for it");
  }
}

void Scheduler::SleepUntil(int64_t deadline) {
  current->state = Thread::State::kSleeping;
  current->operation = "sleep";
  current->object = nullptr;
  current->deadline = deadline;
  Reschedule();
  current->state = Thread::State::kReady;
}

pthread_t Scheduler::Start(void* (*routine)(void*), void* argument) {
  if (live.size() == kMostThreads / 2) Fail("too many threads");
  inside = true;
  Thread& thread = threads.emplace_back();
  thread.number = threads.size();
  thread.routine = routine;
  thread.argument = argument;
  thread.history = current == nullptr ? 0 : Mix(current->history, kStarted);
  thread.mayFail = current != nullptr && current->mayFail;
  thread.stack = NewStack();
  ::getcontext(&thread.context.start);
  thread.context.start.uc_stack.ss_sp = thread.stack;
  thread.context.start.uc_stack.ss_size = kStackSize;
  ::makecontext(&thread.context.start, &Scheduler::Main, 0);
  live.push_back(&thread);
  inside = false;
  if (current != nullptr) Point("started a thread", nullptr);
  return firstHandle + thread.number;
}

Scheduler::Thread& Scheduler::Find(pthread_t handle) {
  const size_t index = handle - firstHandle - 1;
  if (index >= threads.size()) Fail("a thread is not known");
  if (threads[index].reaped) Fail("a thread is joined or detached twice");
  return threads[index];
}

void Scheduler::Join(pthread_t handle) {
  Thread& thread = Find(handle);
  current->state = Thread::State::kJoining;
  current->operation = "join";
  current->object = &thread;
  Reschedule();
  current->state = Thread::State::kReady;
  thread.reaped = true;
}

void Scheduler::Detach(pthread_t handle) {
  Point("detach", nullptr);
  Find(handle).reaped = true;
}

void Scheduler::AllowFaults(bool allowed) { current->mayFail = allowed; }

}  // namespace tarsio_test
