#include "support/scoped_time_zone.h"

#include <cstdlib>
#include <ctime>

namespace tarsio_test {

namespace {

// An empty value removes the variable.
void Use(const std::string& zone) {
  ::_putenv(("TZ=" + zone).c_str());
  ::_tzset();
}

}  // namespace

ScopedTimeZone::ScopedTimeZone(const std::string& zone) {
  const char* const value = std::getenv("TZ");
  if (value != nullptr) before = value;
  Use(zone);
}

ScopedTimeZone::~ScopedTimeZone() { Use(before); }

}  // namespace tarsio_test
