#ifndef TARSIO_DIGEST_DIGEST_H_
#define TARSIO_DIGEST_DIGEST_H_

#include <cstdint>
#include <string>

#include "common/path.h"

// What became of one file.
struct Outcome {
  std::string digest;             // 64 hexadecimal digits
  uint64_t bytes = 0;             // digested
  const char* failure = nullptr;  // why there is no digest, or null
};

// `name` as the library takes it: one that begins with a single separator is meant from the root of
// the current directory's drive.
std::string WithDrive(const std::string& name);

// Reads the file whole and digests it. A relative name is resolved by `resolver`. Throws nothing.
Outcome DigestFile(const std::string& name, const tarsio::PathResolver& resolver);

// `name` for a message: one with control characters, or bytes that are not UTF-8, is quoted as the
// shell would need it, 'a'$'\n''b'.
std::string Quoted(const std::string& name);

// "digest  name", as sha256sum writes it: where the name holds a backslash or a line end, these are
// escaped and the line begins with a backslash.
std::string FormatLine(const std::string& digest, const std::string& name);

#endif  // TARSIO_DIGEST_DIGEST_H_
