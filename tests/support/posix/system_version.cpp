#include "support/system_version.h"

#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>

namespace {

std::atomic<int> status{0};
std::atomic<const char*> release{nullptr};  // null: the real release

}  // namespace

// Replaces the C library's function.
extern "C" int uname(struct utsname* system) noexcept {
  if (status != 0) {
    errno = EFAULT;
    return status;
  }
  const auto result = static_cast<int>(::syscall(SYS_uname, system));
  if (release != nullptr) std::strcpy(system->release, release);
  return result;
}

namespace tarsio_test {

std::string SystemVersion() {
  std::ifstream file("/proc/sys/kernel/osrelease");
  std::string release;
  std::getline(file, release);
  const size_t minor = release.find('.') + 1;
  return release.substr(0, release.find_first_not_of("0123456789", minor));
}

std::vector<int32_t> SystemVersionFailures() { return {-1}; }

RefuseSystemVersion::RefuseSystemVersion(int32_t returned) { status = returned; }
RefuseSystemVersion::~RefuseSystemVersion() { status = 0; }

PretendSystemVersion::PretendSystemVersion(uint32_t major, uint32_t minor) {
  static std::string text;
  text = std::to_string(major) + '.' + std::to_string(minor) + ".34-x";
  release = text.c_str();
}
PretendSystemVersion::~PretendSystemVersion() { release = nullptr; }

}  // namespace tarsio_test
