// Replaces the functions that std::thread, the locks, the condition variables, sleeps and clocks
// call, also in the C++ runtime, which is linked statically, and operator new. Outside a schedule
// there is only one thread, so locks need not do anything.

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <utility>

#include "threads/explorer/atomic_points.h"
#include "threads/explorer/scheduler.h"

namespace {

using tarsio_test::kNever;
using tarsio_test::Scheduler;
using tarsio_test::TheScheduler;

constexpr int64_t kSecond = 1000000000;

int64_t Nanoseconds(const timespec& time) {
  if (time.tv_sec >= kNever / kSecond) return kNever;
  return time.tv_sec * kSecond + time.tv_nsec;
}

timespec TimeSpec(int64_t nanoseconds) {
  return {static_cast<time_t>(nanoseconds / kSecond), static_cast<long>(nanoseconds % kSecond)};
}

int Wait(pthread_cond_t* condition, pthread_mutex_t* mutex, int64_t deadline) {
  if (!Scheduler::Active()) std::abort();
  return TheScheduler().Wait(condition, mutex, deadline) ? 0 : ETIMEDOUT;
}

int Notify(pthread_cond_t* condition, bool all) {
  if (Scheduler::Active()) TheScheduler().Notify(condition, all);
  return 0;
}

// ---- allocations ----

struct alignas(std::max_align_t) Header {
  size_t size = 0;
  uint64_t schedule = 0;  // 0: not allocated by a thread of a schedule
  Header* next = nullptr;
  Header* previous = nullptr;
};

// NOLINTBEGIN(*-non-const-global-variables)
Header newest;  // of the list of allocations by threads of schedules
int64_t liveAllocations = 0;
// NOLINTEND(*-non-const-global-variables)

void Link(Header* header) {
  header->schedule = TheScheduler().Schedule();
  header->next = std::exchange(newest.next, header);
  header->previous = &newest;
  if (header->next != nullptr) header->next->previous = header;
  ++liveAllocations;
}

void Unlink(Header* header) {
  header->previous->next = header->next;
  if (header->next != nullptr) header->next->previous = header->previous;
  --liveAllocations;
}

// NOLINTBEGIN(*-owning-memory,*-no-malloc): they implement operator new

void* Allocate(size_t size) {
  const bool active = Scheduler::Active();
  if (active) {
    Scheduler& scheduler = TheScheduler();
    if (scheduler.AllocationPoints()) scheduler.Point("allocate", nullptr);
    if (scheduler.InjectFault()) throw std::bad_alloc();
  }
  void* const memory = std::malloc(sizeof(Header) + size);
  if (memory == nullptr) throw std::bad_alloc();
  auto* const header = new (memory) Header{size};
  if (active) Link(header);
  return header + 1;
}

void Free(void* memory) {
  if (memory == nullptr) return;
  auto* const header = static_cast<Header*>(memory) - 1;
  if (header->schedule != 0) Unlink(header);
  // Whatever is still used is noticed without a sanitizer as well.
  std::memset(memory, 0xDD, header->size);
  std::free(header);
}

// NOLINTEND(*-owning-memory,*-no-malloc)

}  // namespace

namespace tarsio_test {

int64_t LiveAllocations() { return liveAllocations; }

void FreeAllocations() {
  const uint64_t schedule = TheScheduler().Schedule();
  // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): Free() unlinks it
  while (newest.next != nullptr && newest.next->schedule == schedule) Free(newest.next + 1);
}

void Access(Version& version, bool writes) {
  if (Scheduler::Active()) TheScheduler().Access(version, writes);
}

void AtomicPoint(const char* operation, const void* object, Version& version, bool writes) {
  if (!Scheduler::Active()) return;
  TheScheduler().Point(operation, object);
  TheScheduler().Access(version, writes);
}

}  // namespace tarsio_test

void* operator new(size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { Free(memory); }

// NOLINTBEGIN(*-inconsistent-declaration-parameter-name,*-reserved-identifier,*-naming)

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
  if (Scheduler::Active()) TheScheduler().Lock(mutex);
  return 0;
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
  if (!Scheduler::Active()) return 0;
  return TheScheduler().TryLock(mutex) ? 0 : EBUSY;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
  if (Scheduler::Active()) TheScheduler().Unlock(mutex);
  return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  return Wait(condition, mutex, kNever);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* deadline) {
  return Wait(condition, mutex, Nanoseconds(*deadline));
}

// All clocks show the same time.
int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t /*clock*/,
                           const timespec* deadline) {
  return Wait(condition, mutex, Nanoseconds(*deadline));
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept { return Notify(condition, false); }
int pthread_cond_broadcast(pthread_cond_t* condition) noexcept { return Notify(condition, true); }

int pthread_cond_destroy(pthread_cond_t* condition) noexcept {
  if (Scheduler::Active()) TheScheduler().End(condition);
  return 0;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* /*attributes*/, void* (*routine)(void*),
                   void* argument) noexcept {
  if (!Scheduler::Active()) std::abort();
  if (TheScheduler().InjectFault()) return EAGAIN;
  *thread = TheScheduler().Start(routine, argument);
  return 0;
}

int pthread_join(pthread_t thread, void** /*result*/) {
  if (!Scheduler::Active()) return 0;
  if (thread == TheScheduler().Self()) return EDEADLK;
  TheScheduler().Join(thread);
  return 0;
}

int pthread_detach(pthread_t thread) noexcept {
  if (Scheduler::Active()) TheScheduler().Detach(thread);
  return 0;
}

int sched_yield() noexcept {
  if (Scheduler::Active()) TheScheduler().Point("yield", nullptr);
  return 0;
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  if (!Scheduler::Active()) return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
  *time = TimeSpec(TheScheduler().Now());
  return 0;
}

int nanosleep(const timespec* duration, timespec* left) {
  if (!Scheduler::Active()) return static_cast<int>(::syscall(SYS_nanosleep, duration, left));
  TheScheduler().SleepUntil(TheScheduler().Now() + Nanoseconds(*duration));
  return 0;
}

// The linker's --wrap option redirects the calls in this program only: the sanitizers' runtimes
// call the function very early.
pthread_t __real_pthread_self() noexcept;
pthread_t __wrap_pthread_self() noexcept {
  return Scheduler::Active() ? TheScheduler().Self() : __real_pthread_self();
}

}  // extern "C"

// NOLINTEND(*-inconsistent-declaration-parameter-name,*-reserved-identifier,*-naming)
