#include "support/scoped_time_zone.h"

#include <cstdlib>
#include <ctime>

namespace tarsio_test {

namespace {

void Use(const std::string& zone) {
  if (zone.empty()) {
    ::unsetenv("TZ");
  } else {
    ::setenv("TZ", zone.c_str(), 1);
  }
  ::tzset();
}

}  // namespace

ScopedTimeZone::ScopedTimeZone(const std::string& zone) {
  const char* const value = std::getenv("TZ");
  if (value != nullptr) before = value;
  Use(zone);
}

ScopedTimeZone::~ScopedTimeZone() { Use(before); }

}  // namespace tarsio_test
