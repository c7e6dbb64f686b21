// Locales for tests of what depends on them.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_THREAD_LOCALE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_THREAD_LOCALE_H_

namespace tarsio_test {

// Has the C library find the locales that are made for the tests, where there are any.
void FindTestLocales();

// A locale of this thread's own for character classes, that of the Western European code page,
// until the object ends.
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
