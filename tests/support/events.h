// Counts events; other threads can wait for a number of them.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_EVENTS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_EVENTS_H_

#include <condition_variable>
#include <mutex>

#include "support/gate.h"

namespace tarsio_test {

class Events {
 public:
  void Add() {
    const std::lock_guard<std::mutex> lock(mutex);
    ++count;
    added.notify_all();
  }

  int Count() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return count;
  }

  // Waits until there have been `number` events. Returns false on timeout.
  bool Await(int number = 1) const {
    std::unique_lock<std::mutex> lock(mutex);
    return added.wait_for(lock, kTestTimeout, [&] { return count >= number; });
  }

 private:
  mutable std::mutex mutex;
  mutable std::condition_variable added;
  int count = 0;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_EVENTS_H_
