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
#include <utility>

#include "common/export.h"
#include "common/log.h"

namespace tarsio {

namespace internal {

// The compiler's own spelling of T, cut out of the name that it gives this very function.
template <typename T>
std::string TypeSpelling() {
#if defined(_MSC_VER)
  const std::string name = __FUNCSIG__;
  const std::string::size_type begin = name.find("TypeSpelling<") + std::strlen("TypeSpelling<");
  return name.substr(begin, name.rfind(">(") - begin);
#else
  const std::string name = __PRETTY_FUNCTION__;
  const std::string::size_type begin = name.find("T = ") + std::strlen("T = ");
  // In parentheses, since a system's header may define min as a macro.
  return name.substr(begin, (std::min)(name.find("; std::", begin), name.rfind(']')) - begin);
#endif
}

// Hosts match on this spelling, so it is the same from every compiler.
template <>
inline std::string TypeSpelling<std::function<void()>>() {
  return "class std::function<void __cdecl(void)> ";
}

}  // namespace internal

/// A queue of at most `capacity` elements.
///
/// Every operation that may wait takes a signed timeout in milliseconds:
///
///     timeoutMs > 0    waits up to that long, on the system clock
///     timeoutMs == 0   waits without limit (the opposite of many queues)
///     timeoutMs < 0    does not wait
///
/// The deadline is fixed once the queue's lock has been taken; the time that the lock itself takes
/// is not counted. Elements must be copyable (Push() copies) and assignable (Pop() moves).
///
/// Requires: no thread may be waiting when the queue is destroyed.
/// Guarantees: elements leave in the order in which they came; after Close() nothing enters.
/// Threads:  every member may be called from any number of threads at once. A callback that runs
///           under the queue's lock (copying, moving or destroying an element, and the log's sink
///           when Push() reports) must not use the queue.
/// Throws:   `std::system_error` when the system's locks fail, memory exhaustion, and what copying
///           or moving an element throws; a failed Push() leaves the queue as it was.
template <typename T>
class BlockingQueue {
 public:
  /// Any capacity is accepted. A queue of capacity 0 never takes an element.
  explicit BlockingQueue(uint64_t queueCapacity) : capacity(queueCapacity) {}

  BlockingQueue(const BlockingQueue&) = delete;
  BlockingQueue& operator=(const BlockingQueue&) = delete;

  /// Destroys the elements that are left. Neither closes the queue nor wakes a thread.
  virtual ~BlockingQueue() = default;

  /// Appends a copy of `item` when there is room, and returns whether it did. A refusal is reported
  /// at LOG_LEVEL_WARN: "queue full or timeout". On a closed queue it waits its whole timeout, with
  /// timeout 0 forever.
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

  /// Moves the first element into `item`, and returns whether it did; if not, `item` is left as it
  /// was and nothing is reported. On a closed queue it waits its whole timeout, with timeout 0
  /// forever.
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

  /// Discards every element and closes the queue for good. Waiting threads are woken, but find the
  /// queue closed and wait until their own deadline (by design). The elements are destroyed under
  /// the lock. Allocates nothing.
  void Close() {
    const std::lock_guard<std::mutex> lock(mutex);
    closed = true;
    notFull.Wake();
    notEmpty.Wake();
    items.clear();  // in place: another container to exchange them with would allocate
  }

  /// The number of elements at this moment.
  uint64_t Size() {
    const std::lock_guard<std::mutex> lock(mutex);
    return items.size();
  }

 private:
  /// \cond
  // Those who wait for the same change, under the queue's lock.
  struct Waiters {
    std::condition_variable changed;
    bool any = false;  // somebody has begun to wait since the last wake

    void Wake() {
      if (!any) return;
      any = false;
      changed.notify_all();
    }
  };
  /// \endcond

  // The single waiting rule. A notification or a spurious wake-up never moves the deadline.
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
    // Hosts match on file, line and function: they belong to the interface, so the line is not
    // __LINE__ and the file not the path by which a host's compiler found this header.
    constexpr int kQueueFullLine = 86;
    // Never destroyed: threads may report while the process ends.
    static const std::string& function =
        *new std::string("tarsio::BlockingQueue<" + internal::TypeSpelling<T>() + ">::Push");
    Log::GetInstance().DoLog(LOG_LEVEL_WARN, "include/common/blocking_queue.h", kQueueFullLine,
                             function.c_str(), "queue full or timeout");
  }

  std::mutex mutex;  // guards all that follows
  const uint64_t capacity;
  std::deque<T> items;
  Waiters notFull;
  Waiters notEmpty;
  bool closed = false;  // never cleared
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_BLOCKING_QUEUE_H_
