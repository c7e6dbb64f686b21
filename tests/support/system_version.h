// The version of the running system, queried without the library.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_

#include <string>

namespace tarsio_test {

// Returns the first two numbers of the system's version, such as "10.0"; on Linux those of the
// kernel's release, as printed by `uname -r`.
std::string SystemVersion();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SYSTEM_VERSION_H_
