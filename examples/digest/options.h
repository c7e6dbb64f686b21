#ifndef TARSIO_DIGEST_OPTIONS_H_
#define TARSIO_DIGEST_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

struct Options {
  uint64_t jobs = 1;               // workers
  bool quiet = false;              // no summary
  bool progress = false;           // a progress line, terminal or not
  bool version = false;            // nothing but the version
  std::vector<std::string> roots;  // where relative names are looked for first
  std::vector<std::string> names;  // files; "-" stands for the names on standard input
};

// Reads the command line. False if it is not understood, or gives nothing to do.
bool ParseOptions(const std::vector<std::string>& arguments, Options* options);

extern const char kUsage[];

#endif  // TARSIO_DIGEST_OPTIONS_H_
