#ifndef TARSIO_DIGEST_DIGEST_H_
#define TARSIO_DIGEST_DIGEST_H_

#include <cstdint>
#include <string>

#include "common/path.h"

// What became of one file.
struct Outcome {
  std::string digest;   // 64 hexadecimal digits in lower case
  uint64_t bytes = 0;   // digested
  std::string failure;  // why there is no digest, or empty
};

// Reads the file into memory and digests it. A relative name is resolved by `resolver`.
Outcome DigestFile(const std::string& name, const tarsio::PathResolver& resolver);

// Reads the rest of standard input into memory and digests it.
Outcome DigestStandardInput();

#endif  // TARSIO_DIGEST_DIGEST_H_
