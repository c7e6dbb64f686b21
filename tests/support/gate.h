// A one-shot event that tests wait for.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_GATE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_GATE_H_

#include <chrono>
#include <condition_variable>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tarsio_test {

// How long to wait for an expected event before the test fails.
constexpr std::chrono::seconds kTestTimeout{40};
// How long to watch a call that must not return.
constexpr std::chrono::milliseconds kBlockedCheck{300};

// A thread that has returned from a wait may destroy the gate.
class Gate {
 public:
  void Open() {
    const std::lock_guard<std::mutex> lock(mutex);
    open = true;
    changed.notify_all();
  }

  void Wait() {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return open; });
  }

  // Waits up to `limit` and returns whether the gate is open.
  bool WaitFor(std::chrono::milliseconds limit = kTestTimeout) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, limit, [this] { return open; });
  }

  bool IsOpen() {
    const std::lock_guard<std::mutex> lock(mutex);
    return open;
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false;
};

// Opens gates on every way out of a test, so that no thread stays blocked.
class OpenOnExit {
 public:
  OpenOnExit(std::initializer_list<std::shared_ptr<Gate>> list) : gates(list) {}
  OpenOnExit(const OpenOnExit&) = delete;
  OpenOnExit& operator=(const OpenOnExit&) = delete;
  ~OpenOnExit() {
    for (const auto& gate : gates) gate->Open();
  }

 private:
  const std::vector<std::shared_ptr<Gate>> gates;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_GATE_H_
