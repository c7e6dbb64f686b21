// Included before everything else in the sources that run under the explorer: each operation of a
// std::atomic becomes a point where the explorer may switch threads.

#ifndef TARSIO_COMMON_TESTS_THREADS_EXPLORER_ATOMIC_POINTS_H_
#define TARSIO_COMMON_TESTS_THREADS_EXPLORER_ATOMIC_POINTS_H_

// The standard headers that name std::atomic themselves.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace tarsio_test {

// What has happened to an object in a schedule.
struct Version {
  uint64_t hash = 0;
  uint64_t schedule = 0;
};

// Notes an access of the calling thread to an object that threads share.
void Access(Version& version, bool writes);
void AtomicPoint(const char* operation, const void* object, Version& version, bool writes);

}  // namespace tarsio_test

// The sources write std::atomic, so the wrapper has to be in this namespace.
namespace std {  // NOLINT(cert-dcl58-cpp)

// All accesses are sequentially consistent: one thread runs at a time.
template <typename T>
class AtomicWithPoints {
 public:
  constexpr AtomicWithPoints() noexcept = default;
  // NOLINTNEXTLINE(google-explicit-constructor): as std::atomic
  constexpr AtomicWithPoints(T initial) noexcept : value(initial) {}
  AtomicWithPoints(const AtomicWithPoints&) = delete;
  AtomicWithPoints& operator=(const AtomicWithPoints&) = delete;

  T load(memory_order /*order*/ = memory_order_seq_cst) const {
    tarsio_test::AtomicPoint("load", this, version, false);
    return value;
  }
  void store(T desired, memory_order /*order*/ = memory_order_seq_cst) { Change("store", desired); }
  T exchange(T desired, memory_order /*order*/ = memory_order_seq_cst) {
    return Change("exchange", desired);
  }
  bool compare_exchange_strong(T& expected, T desired) {
    tarsio_test::AtomicPoint("compare_exchange", this, version, true);
    const bool equal = value == expected;
    (equal ? value : expected) = equal ? desired : value;
    return equal;
  }
  T fetch_add(T operand, memory_order /*order*/ = memory_order_seq_cst) {
    tarsio_test::AtomicPoint("fetch_add", this, version, true);
    return std::exchange(value, value + operand);
  }
  T fetch_sub(T operand, memory_order /*order*/ = memory_order_seq_cst) {
    tarsio_test::AtomicPoint("fetch_sub", this, version, true);
    return std::exchange(value, value - operand);
  }
  // NOLINTNEXTLINE(google-explicit-constructor): as std::atomic
  operator T() const { return load(); }
  T operator=(T desired) {  // NOLINT(*-unconventional-assign-operator): as std::atomic
    store(desired);
    return desired;
  }
  T operator++() { return fetch_add(1) + 1; }

 private:
  T Change(const char* operation, T desired) {
    tarsio_test::AtomicPoint(operation, this, version, true);
    return std::exchange(value, desired);
  }

  T value{};
  mutable tarsio_test::Version version;
};

}  // namespace std

#define atomic AtomicWithPoints

#endif  // TARSIO_COMMON_TESTS_THREADS_EXPLORER_ATOMIC_POINTS_H_
