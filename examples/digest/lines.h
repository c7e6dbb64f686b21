#ifndef TARSIO_DIGEST_LINES_H_
#define TARSIO_DIGEST_LINES_H_

#include <array>
#include <cstdio>
#include <string>

#include "system.h"

// Reads a file line by line, without loading it into memory.
class LineReader {
 public:
  // Opens the file; "-" is standard input. On failure Next() returns false and Failure() is set.
  explicit LineReader(const std::string& name);
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  bool IsStandardInput() const { return file == stdin; }

  // Stores the part up to the next `terminator`, or the end of the file, in `line`. Returns false
  // if nothing is left.
  bool Next(char terminator, std::string* line);

  // Returns why reading failed, or an empty string.
  const std::string& Failure() const { return failure; }

 private:
  // Refills the empty buffer; may block. Returns false at the end of the file or on failure.
  bool Fill();

  const File opened;  // null for standard input
  std::FILE* const file;
  std::string failure;
  static constexpr unsigned kBufferSize = 0x4000;
  std::array<char, kBufferSize> buffer{};
  const char* begin = buffer.data();  // begin to end: read but not yet returned
  const char* end = buffer.data();
};

#endif  // TARSIO_DIGEST_LINES_H_
