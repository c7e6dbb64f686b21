#include "support/lock_faults.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <utility>

namespace {

using std::chrono::system_clock;
using tarsio_test::NotificationWatch;

// Identifies the current thread by the address of its errno. Thread-local variables and thread ids
// may need a lock, in a thread that ends even existing ones.
const void* ThisThread() { return &errno; }

std::atomic<bool> watching{false};
std::atomic<const void*> watched{nullptr};
std::atomic<size_t> locksLeft{SIZE_MAX};  // successful locks before the one that fails
std::atomic<int64_t> lastDeadline{0};     // nanoseconds since 1970
std::atomic<int64_t> firstEntry{0};       // nanoseconds since 1970
std::atomic<size_t> waitsBegun{0};

// Used by the watched thread only.
int locksHeld = 0;
std::vector<NotificationWatch::Notification> notifications;
std::function<void()> beforeNextWait;

bool IsWatched() { return watching && ThisThread() == watched; }

void Watch() {
  watched = ThisThread();
  watching = true;
}

system_clock::time_point TimeOf(int64_t nanoseconds) {
  return system_clock::time_point(
      std::chrono::duration_cast<system_clock::duration>(std::chrono::nanoseconds(nanoseconds)));
}

int64_t NanosecondsOf(system_clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

void Note(const void* condition, bool ofAll) {
  if (IsWatched()) notifications.push_back({condition, ofAll, locksHeld > 0});
}

}  // namespace

namespace tarsio_test {

LockFault::LockFault(size_t allowed) {
  locksLeft = allowed;
  Watch();
}
LockFault::~LockFault() {
  watching = false;
  locksLeft = SIZE_MAX;
}

DeadlineWatch::DeadlineWatch() {
  lastDeadline = 0;
  firstEntry = 0;
  Watch();
}
DeadlineWatch::~DeadlineWatch() { watching = false; }

system_clock::time_point DeadlineWatch::Last() { return TimeOf(lastDeadline); }
system_clock::time_point DeadlineWatch::FirstEntry() { return TimeOf(firstEntry); }

NotificationWatch::NotificationWatch() {
  locksHeld = 0;
  notifications.clear();
  Watch();
}
NotificationWatch::~NotificationWatch() { watching = false; }

std::vector<NotificationWatch::Notification> NotificationWatch::All() { return notifications; }

size_t WaitsBegun() { return waitsBegun; }

void BeforeNextWait(std::function<void()> hook) {
  beforeNextWait = std::move(hook);
  Watch();
}

}  // namespace tarsio_test

// The linker's --wrap option redirects calls of NAME to __wrap_NAME; __real_NAME is the original.
// The thread libraries of both systems have these functions.
extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (!IsWatched()) return __real_pthread_mutex_lock(mutex);
  if (locksLeft-- == 0) return EAGAIN;
  ++locksHeld;
  return __real_pthread_mutex_lock(mutex);
}

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  if (IsWatched()) --locksHeld;
  return __real_pthread_mutex_unlock(mutex);
}

int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (IsWatched() && beforeNextWait) {
    watching = false;
    std::exchange(beforeNextWait, nullptr)();
  }
  ++waitsBegun;
  return __real_pthread_cond_wait(condition, mutex);
}

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
  constexpr int64_t kNanoseconds = 1000000000;
  if (IsWatched()) {
    if (firstEntry == 0) firstEntry = NanosecondsOf(system_clock::now());
    lastDeadline = deadline->tv_sec * kNanoseconds + deadline->tv_nsec;
  }
  return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __real_pthread_cond_signal(pthread_cond_t* condition);
int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  Note(condition, false);
  return __real_pthread_cond_signal(condition);
}

int __real_pthread_cond_broadcast(pthread_cond_t* condition);
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
  Note(condition, true);
  return __real_pthread_cond_broadcast(condition);
}

}  // extern "C"
