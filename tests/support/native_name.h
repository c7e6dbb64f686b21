// The system's name for the object at a path of the library.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_NATIVE_NAME_H_
#define TARSIO_COMMON_TESTS_SUPPORT_NATIVE_NAME_H_

#include <algorithm>
#include <filesystem>
#include <string>

#include "common/path.h"

namespace tarsio_test {

// Takes an absolute path on drive C: of any length; the result is for the standard library.
inline std::filesystem::path NativeName(const tarsio::Path& path) {
  if (std::filesystem::path("C:\\").is_absolute()) return path.Wstr();
  std::string name = path.Str();
  std::replace(name.begin(), name.end(), '\\', '/');
  return std::filesystem::u8path(name.substr(name.find(':') + 1));
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_NATIVE_NAME_H_
