// The runtime's stat, for this thread, as one system's behaves. For programs that are linked with
// the call's wrapper.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FAILING_STAT_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FAILING_STAT_H_

namespace tarsio_test {

// While it lives, the call fails for every path. Systems on which it takes every path are left
// alone.
class FailingStat {
 public:
  FailingStat();
  FailingStat(const FailingStat&) = delete;
  FailingStat& operator=(const FailingStat&) = delete;
  ~FailingStat();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FAILING_STAT_H_
