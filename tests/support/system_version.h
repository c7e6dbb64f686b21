// The version of the running system, queried without the library.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_

#include <cstdint>
#include <string>
#include <vector>

namespace tarsio_test {

// Returns the first two numbers of the system's version, such as "10.0"; on Linux those of the
// kernel's release, as printed by `uname -r`.
std::string SystemVersion();

// The values that the system's version call may return on failure.
std::vector<int32_t> SystemVersionFailures();

// In its scope, that call fails in the whole process.
class RefuseSystemVersion {
 public:
  explicit RefuseSystemVersion(int32_t status = SystemVersionFailures().front());
  RefuseSystemVersion(const RefuseSystemVersion&) = delete;
  RefuseSystemVersion& operator=(const RefuseSystemVersion&) = delete;
  ~RefuseSystemVersion();
};

// In its scope, that call returns this version in the whole process.
class PretendSystemVersion {
 public:
  PretendSystemVersion(uint32_t major, uint32_t minor);
  PretendSystemVersion(const PretendSystemVersion&) = delete;
  PretendSystemVersion& operator=(const PretendSystemVersion&) = delete;
  ~PretendSystemVersion();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
