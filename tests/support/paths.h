// Paths of any type.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_PATHS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_PATHS_H_

#include <gtest/gtest.h>

#include <string>

#include "common/path.h"

namespace tarsio_test {

// A type that the interface does not define.
constexpr auto kNoType = static_cast<tarsio::Path::PathType>(7);

inline tarsio::Path Parsed(const std::string& text, tarsio::Path::PathType type) {
  tarsio::Path path;
  path.Set(text, type);
  return path;
}

inline tarsio::Path Posix(const std::string& text) {
  return Parsed(text, tarsio::Path::POSIX_PATH);
}

// operator== compares the components only.
inline void ExpectSamePath(const tarsio::Path& actual, const tarsio::Path& expected) {
  EXPECT_EQ(actual, expected);
  EXPECT_EQ(actual.Str(), expected.Str());
  EXPECT_EQ(actual.IsAbsolute(), expected.IsAbsolute());
  EXPECT_EQ((actual / "x").Length(), (expected / "x").Length()) << "type";
  EXPECT_EQ((actual / Posix("x")).Length(), (expected / Posix("x")).Length()) << "type";
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_PATHS_H_
