// A platform layer for programs that compile sources of the library: the test sets the answers, and
// the calls are recorded.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FAKE_PLATFORM_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FAKE_PLATFORM_H_

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tarsio_test {

// Answers the calls of the library. At most one exists at a time. All paths are ASCII.
class FakePlatform {
 public:
  FakePlatform();
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;
  ~FakePlatform();

  // Returns the calls since the last time, such as "FullPath C:\a 260". A read is one call for
  // every two bytes, and a status is a "TypeOf" and, for a file, a "SizeOf".
  std::vector<std::string> Calls() { return std::exchange(calls, {}); }
  // Likewise for the strings that Widen() and Narrow() converted.
  std::vector<std::string> Conversions() { return std::exchange(conversions, {}); }

  // ---- paths ----

  std::string fullPath;
  std::string currentDirectory;
  std::map<std::string, tarsio::platform::FileType> objects;
  tarsio::platform::FileType otherObjects = tarsio::platform::FileType::kNone;
  bool changes = true;             // whether directories and files are created and removed
  std::optional<uint64_t> sizeOf;  // instead of the size of `content`

  // ---- the content of all files ----

  bool opens = true;
  std::string content;
  size_t room = SIZE_MAX;              // free disk space in bytes
  tarsio::platform::WriteMode mode{};  // of the last open
  int openFiles = 0;
  size_t position = 0;  // of the next read

  // ---- everything else ----

  std::optional<tarsio::platform::Version> version;
  bool libcryptoIsUsable = true;
  bool processIsEnding = false;
  int64_t ticks = 0;
  std::optional<std::tm> localTime;  // the conversion fails if it is not set

  // Runs before call number `eventAt`, counted from 0.
  std::function<void()> event;
  size_t eventAt = SIZE_MAX;

  // For the platform layer.
  static FakePlatform& Get();
  void Record(const std::string& call);

  std::vector<std::string> conversions;

 private:
  std::vector<std::string> calls;
  size_t recorded = 0;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FAKE_PLATFORM_H_
