// Where threads wait for each other.

#ifndef TARSIO_COMMON_BENCH_SUPPORT_GATE_H_
#define TARSIO_COMMON_BENCH_SUPPORT_GATE_H_

#include <condition_variable>
#include <mutex>

namespace tarsio_bench {

// Whoever has waited for its opening may destroy it.
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

 private:
  std::mutex mutex;
  std::condition_variable changed;
  bool open = false;
};

}  // namespace tarsio_bench

#endif  // TARSIO_COMMON_BENCH_SUPPORT_GATE_H_
