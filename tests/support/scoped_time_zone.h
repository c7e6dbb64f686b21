// Sets the process's time zone while the object lives.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SCOPED_TIME_ZONE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SCOPED_TIME_ZONE_H_

#include <string>

namespace tarsio_test {

class ScopedTimeZone {
 public:
  // `zone` has the form that every runtime understands: a name of three letters and the number of
  // hours west of UTC, as in "JST-9".
  explicit ScopedTimeZone(const std::string& zone);
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;
  ~ScopedTimeZone();

 private:
  std::string before;  // empty if it was not set
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SCOPED_TIME_ZONE_H_
