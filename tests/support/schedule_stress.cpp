#include "support/schedule_stress.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace {

// One sequence for all threads, since thread-local variables may need a lock. Relaxed, so that it
// does not order threads that the code under test leaves unordered.
std::atomic<uint64_t> sequence{20240305};
std::atomic<uint64_t> disturbances{0};

// SplitMix64.
uint64_t Random() {
  uint64_t x = sequence.fetch_add(0x9E3779B97F4A7C15, std::memory_order_relaxed);
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
  return x ^ (x >> 31);
}

void Disturb() {
  const uint64_t random = Random();
  if (random % 8 != 0) return;
  disturbances.fetch_add(1, std::memory_order_relaxed);
  if (random % 256 == 0) {
    std::this_thread::sleep_for(std::chrono::microseconds(random / 256 % 100));
  } else {
    std::this_thread::yield();
  }
}

template <typename Operation>
int Disturbed(Operation operation) {
  Disturb();
  const int result = operation();
  Disturb();
  return result;
}

}  // namespace

uint64_t tarsio_test::ScheduleDisturbances() {
  return disturbances.load(std::memory_order_relaxed);
}

// The linker's --wrap option redirects calls of NAME to __wrap_NAME; __real_NAME is the original.
// The thread libraries of both systems have these functions.
extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  return Disturbed([=] { return __real_pthread_mutex_lock(mutex); });
}

int __real_pthread_mutex_trylock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
  return Disturbed([=] { return __real_pthread_mutex_trylock(mutex); });
}

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  return Disturbed([=] { return __real_pthread_mutex_unlock(mutex); });
}

int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  return Disturbed([=] { return __real_pthread_cond_wait(condition, mutex); });
}

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
  return Disturbed([=] { return __real_pthread_cond_timedwait(condition, mutex, deadline); });
}

int __real_pthread_cond_signal(pthread_cond_t* condition);
int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  return Disturbed([=] { return __real_pthread_cond_signal(condition); });
}

int __real_pthread_cond_broadcast(pthread_cond_t* condition);
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
  return Disturbed([=] { return __real_pthread_cond_broadcast(condition); });
}

}  // extern "C"
