// Locales for tests that depend on one.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_THREAD_LOCALE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_THREAD_LOCALE_H_

namespace tarsio_test {

// Makes the C library use the locales that are built for the tests, if any.
void FindTestLocales();

// Sets this thread's locale for character classes to a Western European one while the object lives.
class ThreadLocale {
 public:
  ThreadLocale();
  ThreadLocale(const ThreadLocale&) = delete;
  ThreadLocale& operator=(const ThreadLocale&) = delete;
  ~ThreadLocale();

  bool IsSet() const { return set; }

 private:
  bool set = false;
  void* state = nullptr;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_THREAD_LOCALE_H_
