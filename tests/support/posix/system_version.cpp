#include "support/system_version.h"

#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <fstream>

namespace {

std::atomic<bool> refused{false};

}  // namespace

// In place of the C library's.
extern "C" int uname(struct utsname* system) noexcept {
  if (!refused) return static_cast<int>(::syscall(SYS_uname, system));
  errno = EFAULT;
  return -1;
}

namespace tarsio_test {

std::string SystemVersion() {
  std::ifstream file("/proc/sys/kernel/osrelease");
  std::string release;
  std::getline(file, release);
  const size_t minor = release.find('.') + 1;
  return release.substr(0, release.find_first_not_of("0123456789", minor));
}

RefuseSystemVersion::RefuseSystemVersion() { refused = true; }
RefuseSystemVersion::~RefuseSystemVersion() { refused = false; }

}  // namespace tarsio_test
