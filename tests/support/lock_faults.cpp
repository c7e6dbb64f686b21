#include "support/lock_faults.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <thread>

namespace {

using std::chrono::system_clock;

// No thread's own storage, which may need a lock itself.
std::atomic<bool> watching{false};
std::atomic<std::thread::id> watched;
std::atomic<size_t> locksLeft{SIZE_MAX};  // before the one that fails
std::atomic<int64_t> lastDeadline{0};     // nanoseconds since 1970

bool IsWatched() { return watching && std::this_thread::get_id() == watched.load(); }

void Watch() {
  watched = std::this_thread::get_id();
  watching = true;
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
  Watch();
}
DeadlineWatch::~DeadlineWatch() { watching = false; }

system_clock::time_point DeadlineWatch::Last() {
  return system_clock::time_point(
      std::chrono::duration_cast<system_clock::duration>(std::chrono::nanoseconds(lastDeadline)));
}

}  // namespace tarsio_test

// The linker's --wrap option leads every call of NAME to __wrap_NAME, and calls of __real_NAME to
// what NAME was. The thread libraries of both systems have these names.
extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (IsWatched() && locksLeft-- == 0) return EAGAIN;
  return __real_pthread_mutex_lock(mutex);
}

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
  constexpr int64_t kNanoseconds = 1000000000;
  if (IsWatched()) lastDeadline = deadline->tv_sec * kNanoseconds + deadline->tv_nsec;
  return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

}  // extern "C"
