#ifndef TARSIO_DIGEST_DIGEST_H_
#define TARSIO_DIGEST_DIGEST_H_

#include <cstdint>
#include <string>

#include "common/path.h"

// The result for one file.
struct Outcome {
  std::string digest;   // 64 lower-case hexadecimal digits
  uint64_t bytes = 0;   // the size of the file
  std::string failure;  // the reason if there is no digest; otherwise empty
};

// Reads the file into memory and digests it. A relative name is resolved by `resolver`.
Outcome DigestFile(const std::string& name, const tarsio::PathResolver& resolver);

// Reads the rest of standard input into memory and digests it.
Outcome DigestStandardInput();

#endif  // TARSIO_DIGEST_DIGEST_H_
