#include "common/latch.h"

#include <algorithm>
#include <chrono>

#include "common/blocking_queue.h"

namespace tarsio {

namespace {

using Clock = std::chrono::system_clock;

// Waits once: without limit for 0, else until now plus `timeout` units. As a signed number, a
// timeout of 2^63 or more is negative, so its deadline has passed.
template <typename Unit>
void WaitOnce(std::condition_variable& cv, std::unique_lock<std::mutex>& lock,
              unsigned long long timeout) {
  const auto count = static_cast<long long>(timeout);
  if (count < 0) return;  // one runtime treats a negative deadline as infinite
  if (count == 0) {
    cv.wait(lock);
    return;
  }
  const auto now = Clock::now();
  // The wall clock may be before 1970.
  const auto left = Clock::time_point::max() - std::max(now, Clock::time_point());
  const auto most = std::chrono::duration_cast<Unit>(left).count();
  cv.wait_until(lock, now + Unit(std::min<long long>(count, most)));
}

}  // namespace

CountDownLatch::CountDownLatch(unsigned int initialCount) : count(initialCount) {
  internal::Create(cv);
}
CountDownLatch::~CountDownLatch() = default;

void CountDownLatch::CountDown() {
  const std::lock_guard<std::mutex> lock(mutex);
  if (count == 0) return;
  if (--count == 0) cv.notify_all();
}

void CountDownLatch::Wait(unsigned long long timeoutMs) {
  std::unique_lock<std::mutex> lock(mutex);
  if (count == 0) return;
  // No loop: any wake-up ends the wait (by design).
  WaitOnce<std::chrono::milliseconds>(cv, lock, timeoutMs);
}

unsigned int CountDownLatch::GetCount() {
  const std::lock_guard<std::mutex> lock(mutex);
  return count;
}

CountOutWake::CountOutWake(unsigned int initialCount) : count(initialCount) {
  internal::Create(cv);
}
CountOutWake::CountOutWake() : CountOutWake(0) {}
CountOutWake::~CountOutWake() = default;

void CountOutWake::CountOut() {
  const std::lock_guard<std::mutex> lock(mutex);
  cv.notify_one();
}

void CountOutWake::CountAll() {
  const std::lock_guard<std::mutex> lock(mutex);
  cv.notify_all();
}

void CountOutWake::Wait(unsigned long long timeoutNs) {
  std::unique_lock<std::mutex> lock(mutex);
  ++count;
  WaitOnce<std::chrono::nanoseconds>(cv, lock, timeoutNs);
  --count;
}

unsigned int CountOutWake::GetCount() {
  const std::lock_guard<std::mutex> lock(mutex);
  return count;
}

}  // namespace tarsio
