#ifndef TARSIO_DIGEST_SUMS_H_
#define TARSIO_DIGEST_SUMS_H_

#include <string>

// The lines of a list, in the form that sha256sum reads and writes.

// One file of a list.
struct Entry {
  std::string name;
  std::string digest;  // 64 hexadecimal digits in lower case
};

// "digest  name". If the name holds a backslash or a line end, these are escaped and the line
// begins with a backslash.
std::string FormatLine(const std::string& digest, const std::string& name);

// `name` as it stands in front of ": OK": escaped as in FormatLine(), but only for a newline.
std::string FormatCheckedName(const std::string& name);

// Reads a line that FormatLine() or sha256sum, with any of its options, has written. False if it is
// not such a line.
bool ParseLine(std::string line, Entry* entry);

#endif  // TARSIO_DIGEST_SUMS_H_
