// The version of the running system, past the library.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tarsio_test {

// "10.0": the first two numbers of what the system says of itself, on Linux of the kernel's release
// as `uname -r` prints it.
std::string SystemVersion();

// What the system's call that tells the version may return when it fails.
std::vector<int32_t> SystemVersionFailures();

// While it lives, that call fails everywhere in the process.
class RefuseSystemVersion {
 public:
  explicit RefuseSystemVersion(int32_t status = SystemVersionFailures().front());
  RefuseSystemVersion(const RefuseSystemVersion&) = delete;
  RefuseSystemVersion& operator=(const RefuseSystemVersion&) = delete;
  ~RefuseSystemVersion();
};

// While it lives, that call tells this version everywhere in the process.
class PretendSystemVersion {
 public:
  PretendSystemVersion(uint32_t major, uint32_t minor);
  PretendSystemVersion(const PretendSystemVersion&) = delete;
  PretendSystemVersion& operator=(const PretendSystemVersion&) = delete;
  ~PretendSystemVersion();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
