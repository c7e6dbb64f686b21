// Makes thread starts fail.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_THREAD_STARTS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_THREAD_STARTS_H_

namespace tarsio_test {

// In its scope, std::thread cannot start a thread in this process and throws std::system_error.
// Only one object may exist.
class RefuseThreadStarts {
 public:
  RefuseThreadStarts();
  RefuseThreadStarts(const RefuseThreadStarts&) = delete;
  RefuseThreadStarts& operator=(const RefuseThreadStarts&) = delete;
  ~RefuseThreadStarts();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_THREAD_STARTS_H_
