// Properties of the calling thread.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_THREAD_TRAITS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_THREAD_TRAITS_H_

#include <pthread.h>

#include <array>
#include <string>

namespace tarsio_test {

struct ThreadTraits {
  std::string name;
  int policy = 0;
  int priority = 0;
};

inline bool operator==(const ThreadTraits& left, const ThreadTraits& right) {
  return left.name == right.name && left.policy == right.policy && left.priority == right.priority;
}

inline ThreadTraits TraitsOfThisThread() {
  ThreadTraits traits;
  std::array<char, 64> name{};
  if (pthread_getname_np(pthread_self(), name.data(), name.size()) == 0) traits.name = name.data();
  sched_param parameters{};
  pthread_getschedparam(pthread_self(), &traits.policy, &parameters);
  traits.priority = parameters.sched_priority;
  return traits;
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_THREAD_TRAITS_H_
