#ifndef TARSIO_COMMON_BLOCKING_QUEUE_H_
#define TARSIO_COMMON_BLOCKING_QUEUE_H_

/// \file
/// A bounded first-in first-out queue shared by producers and consumers.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include "common/export.h"
#include "common/log.h"

namespace tarsio {

namespace internal {

// The compiler's spelling of T, taken from the name of this function.
template <typename T>
std::string TypeSpelling() {
#if defined(_MSC_VER)
  const std::string name = __FUNCSIG__;
  const std::string::size_type begin = name.find("TypeSpelling<") + std::strlen("TypeSpelling<");
  return name.substr(begin, name.rfind(">(") - begin);
#else
  const std::string name = __PRETTY_FUNCTION__;
  const std::string::size_type begin = name.find("T = ") + std::strlen("T = ");
  // In parentheses, since a system header may define min as a macro.
  return name.substr(begin, (std::min)(name.find("; std::", begin), name.rfind(']')) - begin);
#endif
}

// Hosts match on this spelling, so it is the same for every compiler.
template <>
inline std::string TypeSpelling<std::function<void()>>() {
  return "class std::function<void __cdecl(void)> ";
}

// mingw-w64's runtime creates a condition variable at its first use or destruction, under a lock of
// the whole process. A thread that is killed at process exit may hold that lock forever, so create
// the condition variable now, which takes no lock. Here, since hosts compile the queue themselves.
inline void Create(std::condition_variable& condition) {
#if defined(__MINGW32__)
  const int error = pthread_cond_init(condition.native_handle(), nullptr);
  if (error != 0) throw std::system_error(error, std::generic_category());
#else
  static_cast<void>(condition);
#endif
}

}  // namespace internal

/// A queue of at most `capacity` elements.
///
/// Every operation that may wait takes a signed timeout in milliseconds:
///
///     timeoutMs > 0    waits up to that long, on the system clock
///     timeoutMs == 0   waits without limit (by design; unlike many queues)
///     timeoutMs < 0    does not wait
///
/// The deadline is computed once the queue's lock is held, so the time spent waiting for the lock
/// does not count. Elements must be copyable (Push() copies) and assignable (Pop() move-assigns).
///
/// Requires: no thread is waiting when the queue is destroyed. Code that runs under the queue's
///           lock must not use the queue: copying, moving and destroying an element, and the log's
///           sink when Push() logs a refusal.
/// Guarantees: elements are popped in the order in which they were pushed; Close() is final. If
///           Push() throws, the queue is unchanged. If Pop() throws, the element stays queued, as
///           the failed assignment left it.
/// Threads:  every member may be called concurrently.
/// Ordering: everything done before a Push() is visible after the Pop() that returns its element.
/// Throws:   `std::system_error` if a lock fails, `std::bad_alloc`, what copying or assigning an
///           element throws, and what the log's sink throws when Push() logs a refusal.
template <typename T>
class BlockingQueue {
 public:
  /// Any capacity is valid. A queue of capacity 0 never accepts an element. Throws
  /// `std::system_error` on Windows if the system lacks resources.
  explicit BlockingQueue(uint64_t queueCapacity) : capacity(queueCapacity) {}

  BlockingQueue(const BlockingQueue&) = delete;
  BlockingQueue& operator=(const BlockingQueue&) = delete;

  /// Destroys the remaining elements. Does not close the queue or wake any thread.
  virtual ~BlockingQueue() = default;

  /// Appends a copy of `item` if there is room before the timeout. Otherwise returns false and logs
  /// "queue full or timeout" at LOG_LEVEL_WARN. On a closed queue, waits for the whole timeout
  /// before it returns false; with timeout 0, forever.
  TARSIO_COMMON_NODISCARD bool Push(const T& item, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex);
    // Unequal, not less: with capacity 0 the empty queue counts as full.
    if (!WaitFor(notFull, lock, timeoutMs,
                 [this] { return !closed && items.size() != capacity; })) {
      ReportRefusal();
      return false;
    }
    items.push_back(item);
    notEmpty.Wake();
    return true;
  }

  /// Moves the first element into `item` if there is one before the timeout. Otherwise returns
  /// false, leaves `item` unchanged and logs nothing. On a closed queue, waits for the whole
  /// timeout before it returns false; with timeout 0, forever.
  TARSIO_COMMON_NODISCARD bool Pop(T& item, int timeoutMs) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!WaitFor(notEmpty, lock, timeoutMs, [this] { return !closed && !items.empty(); })) {
      return false;
    }
    if (std::addressof(item) != std::addressof(items.front())) item = std::move(items.front());
    items.pop_front();
    notFull.Wake();
    return true;
  }

  /// Discards all elements and closes the queue permanently. Threads that are waiting keep waiting
  /// until their own deadline (by design). Elements are destroyed under the lock. No allocation.
  void Close() {
    const std::lock_guard<std::mutex> lock(mutex);
    closed = true;
    notFull.Wake();
    notEmpty.Wake();
    items.clear();  // in place: swapping in an empty deque would allocate
  }

  /// Returns the current number of elements.
  uint64_t Size() {
    const std::lock_guard<std::mutex> lock(mutex);
    return items.size();
  }

 private:
  /// \cond
  // Threads that wait for the same change. Guarded by the queue's mutex.
  struct Waiters {
    Waiters() { internal::Create(changed); }

    std::condition_variable changed;
    bool any = false;  // a thread has started to wait since the last wake-up

    void Wake() {
      if (!any) return;
      any = false;
      changed.notify_all();
    }
  };
  /// \endcond

  // All waits go through here. Neither notifications nor spurious wake-ups move the deadline.
  template <typename Ready>
  static bool WaitFor(Waiters& waiters, std::unique_lock<std::mutex>& lock, int timeoutMs,
                      Ready ready) {
    if (ready()) return true;
    if (timeoutMs < 0) return false;
    const auto readyOrWaits = [&waiters, ready] {
      if (ready()) return true;
      waiters.any = true;
      return false;
    };
    if (timeoutMs == 0) {
      waiters.changed.wait(lock, readyOrWaits);
      return true;
    }
    const auto deadline = std::chrono::system_clock::now() + std::chrono::milliseconds(timeoutMs);
    return waiters.changed.wait_until(lock, deadline, readyOrWaits);
  }

  TARSIO_COMMON_LOCAL static void ReportRefusal() {
    // Hosts match on file, line and function, so these are part of the interface: not __LINE__, and
    // not the path by which the host's compiler found this header.
    constexpr int kQueueFullLine = 86;
    // Never destroyed: threads may still log while the process ends.
    static const std::string& function =
        *new std::string("tarsio::BlockingQueue<" + internal::TypeSpelling<T>() + ">::Push");
    Log::GetInstance().DoLog(LOG_LEVEL_WARN, "include/common/blocking_queue.h", kQueueFullLine,
                             function.c_str(), "queue full or timeout");
  }

  std::mutex mutex;  // guards all members below
  const uint64_t capacity;
  std::deque<T> items;
  Waiters notFull;
  Waiters notEmpty;
  bool closed = false;  // never cleared
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_BLOCKING_QUEUE_H_
