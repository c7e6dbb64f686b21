#include "support/system_version.h"

#include <fstream>

std::string tarsio_test::SystemVersion() {
  std::ifstream file("/proc/sys/kernel/osrelease");
  std::string release;
  std::getline(file, release);
  const size_t minor = release.find('.') + 1;
  return release.substr(0, release.find_first_not_of("0123456789", minor));
}
