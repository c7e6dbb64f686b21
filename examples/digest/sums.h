#ifndef TARSIO_DIGEST_SUMS_H_
#define TARSIO_DIGEST_SUMS_H_

#include <string>

// Formats and parses the lines of a list in the format of sha256sum.

// One file of a list.
struct Entry {
  std::string name;
  std::string digest;  // 64 lower-case hexadecimal digits
};

// Returns "digest  name". If the name contains a backslash or a line ending, these are escaped and
// the line begins with a backslash.
std::string FormatLine(const std::string& digest, const std::string& name);

// Returns `name` as printed before ": OK": escaped as by FormatLine(), but only if it contains a
// newline.
std::string FormatCheckedName(const std::string& name);

// Parses a line in any format that FormatLine() or sha256sum can write. Returns false if it is
// malformed.
bool ParseLine(std::string line, Entry* entry);

#endif  // TARSIO_DIGEST_SUMS_H_
