// What differs on Linux: the system's version is the first two numbers of the kernel's release, and
// libcrypto can be cleaned up. The library is compiled into this program, together with a fake
// uname().

#include <gtest/gtest.h>
#include <openssl/crypto.h>
#include <sys/utsname.h>

#include <cstring>
#include <string>

#include "common/string_utils.h"
#include "platform/platform.h"

namespace {

const char* release = nullptr;  // null: uname() fails

}  // namespace

extern "C" int __wrap_uname(struct utsname* system) {
  if (release == nullptr) return -1;
  std::memset(system, 0, sizeof *system);
  std::memcpy(system->release, release, std::strlen(release));
  return 0;
}

namespace {

std::string Version(const char* ofRelease) {
  release = ofRelease;
  const auto version = tarsio::platform::RunningVersion();
  if (!version) return "none";
  return std::to_string(version->major) + '.' + std::to_string(version->minor);
}

TEST(KernelRelease, TwoNumbers) {
  EXPECT_EQ(Version("6.1.0-13-amd64"), "6.1");
  EXPECT_EQ(Version("5.10"), "5.10");
  EXPECT_EQ(Version("10.0.22631"), "10.0");
  EXPECT_EQ(Version("4.19-custom"), "4.19");
}

TEST(KernelRelease, NoNumbers) {
  for (const char* text : {"", "x", "6", "6.", "6.x", "6-1", ".1", "x6.1"}) {
    EXPECT_EQ(Version(text), "none") << text;
  }
  EXPECT_EQ(Version(nullptr), "none");
}

// The host may do this before the destructors of its statics hash.
TEST(Libcrypto, CleanedUp) {
  EXPECT_EQ(tarsio::StringUtils::GetHashText("abc", 3).size(), 64U);
  ::OPENSSL_cleanup();
  EXPECT_EQ(tarsio::StringUtils::GetHashText("abc", 3), "");
}

}  // namespace
