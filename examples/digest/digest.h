#ifndef TARSIO_DIGEST_DIGEST_H_
#define TARSIO_DIGEST_DIGEST_H_

#include <cstdint>
#include <string>

// What became of one file.
struct Outcome {
  std::string digest;             // 64 hexadecimal digits
  uint64_t bytes = 0;             // digested
  const char* failure = nullptr;  // why there is no digest, or null
};

// Reads the file whole and digests it. A name that begins with a single separator is looked for on
// the drive of the current directory.
Outcome DigestFile(const std::string& name);

// "digest  name", as sha256sum writes it: where the name holds a backslash or a line end, these are
// escaped and the line begins with a backslash.
std::string FormatLine(const std::string& digest, const std::string& name);

#endif  // TARSIO_DIGEST_DIGEST_H_
