// The result and the output of reading a whole file, as one value.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FILE_READING_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FILE_READING_H_

#include <ostream>
#include <string>

#include "common/file_utils.h"

namespace tarsio_test {

// The content of the output before each read.
constexpr char kBefore[] = "previous content";

struct Reading {
  tarsio::FileOptRet result;
  std::string content;
};

inline bool operator==(const Reading& left, const Reading& right) {
  return left.result == right.result && left.content == right.content;
}

inline std::ostream& operator<<(std::ostream& out, const Reading& reading) {
  constexpr std::string::size_type kMost = 200;
  out << "result " << reading.result << " with " << reading.content.size() << " bytes";
  if (reading.content.size() <= kMost) out << ": \"" << reading.content << '"';
  return out;
}

inline Reading ReadFile(const std::string& path) {
  Reading reading{tarsio::FILE_OPT_SUCCESS, kBefore};
  reading.result = tarsio::FileUtils::GetFileContent(path, reading.content);
  return reading;
}

// ---- possible results ----

inline Reading Content(const std::string& content) { return {tarsio::FILE_OPT_SUCCESS, content}; }

// A mismatch clears the output; the other failures leave it unchanged.
inline Reading Failure(tarsio::FileOptRet result) {
  return {result, result == tarsio::FILE_OPT_SIZE_MISMATCH ? "" : kBefore};
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FILE_READING_H_
