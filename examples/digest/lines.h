#ifndef TARSIO_DIGEST_LINES_H_
#define TARSIO_DIGEST_LINES_H_

#include <array>
#include <cstdio>
#include <string>

#include "system.h"

// Reads a file line by line, so that a long list is never held whole.
class LineReader {
 public:
  // Opens the file; "-" is standard input. A failure shows in Failure() after the first Next().
  explicit LineReader(const std::string& name);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool IsStandardInput() const { return file == stdin; }

  // Replaces `line` with what comes before the next `terminator`, or the end of the file. False if
  // there is no more.
  bool Next(char terminator, std::string* line);

  // Why the file was not read to its end, or empty.
  const std::string& Failure() const { return failure; }

 private:
  // Waits for more of the file, at most as much as the buffer holds. False if there is no more.
  bool Fill();

  const File opened;  // null for standard input
  std::FILE* const file;
  std::string failure;
  static constexpr unsigned kBufferSize = 0x4000;
  std::array<char, kBufferSize> buffer{};
  const char* begin = buffer.data();  // of what has not been returned yet
  const char* end = buffer.data();
};

#endif  // TARSIO_DIGEST_LINES_H_
