// Makes the system refuse new threads for a while.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_THREAD_STARTS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_THREAD_STARTS_H_

namespace tarsio_test {

// As long as the object lives, std::thread cannot start a thread anywhere in the process and throws
// std::system_error. One object at a time.
class RefuseThreadStarts {
 public:
  RefuseThreadStarts();
  RefuseThreadStarts(const RefuseThreadStarts&) = delete;
  RefuseThreadStarts& operator=(const RefuseThreadStarts&) = delete;
  ~RefuseThreadStarts();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_THREAD_STARTS_H_
