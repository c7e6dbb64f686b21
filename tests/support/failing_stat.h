// Makes the runtime's stat fail on this thread. For programs that are linked with its wrapper.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FAILING_STAT_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FAILING_STAT_H_

namespace tarsio_test {

// In its scope, the call fails for every path. Has no effect on systems on which the call accepts
// every path.
class FailingStat {
 public:
  FailingStat();
  FailingStat(const FailingStat&) = delete;
  FailingStat& operator=(const FailingStat&) = delete;
  ~FailingStat();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FAILING_STAT_H_
