// The version of the running system, past the library.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_

#include <string>

namespace tarsio_test {

// "10.0": the first two numbers of what the system says of itself, on Linux of the kernel's release
// as `uname -r` prints it.
std::string SystemVersion();

// While it lives, the system's call that tells the version fails everywhere in the process.
class RefuseSystemVersion {
 public:
  RefuseSystemVersion();
  RefuseSystemVersion(const RefuseSystemVersion&) = delete;
  RefuseSystemVersion& operator=(const RefuseSystemVersion&) = delete;
  ~RefuseSystemVersion();
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
