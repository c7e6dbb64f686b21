// Runs an action when a thread ends.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_THREAD_END_H_
#define TARSIO_COMMON_TESTS_SUPPORT_THREAD_END_H_

#include <pthread.h>

#include <functional>
#include <memory>
#include <utility>

namespace tarsio_test {

// Makes this thread call `action` when it ends; replaces an earlier action. Does not use a
// thread_local object, since mingw-w64 may free its memory before destroying it.
inline void WhenThisThreadEnds(std::function<void()> action) {
  using Action = std::function<void()>;
  static const pthread_key_t key = [] {
    pthread_key_t made{};
    pthread_key_create(&made, [](void* last) {
      const std::unique_ptr<Action> owned(static_cast<Action*>(last));
      (*owned)();
    });
    return made;
  }();
  const std::unique_ptr<Action> before(static_cast<Action*>(pthread_getspecific(key)));
  pthread_setspecific(key, std::make_unique<Action>(std::move(action)).release());
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_THREAD_END_H_
