#ifndef TARSIO_DIGEST_OPTIONS_H_
#define TARSIO_DIGEST_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

struct Options {
  uint64_t jobs = 1;                   // workers
  bool check = false;                  // the files are lists to be verified
  bool help = false;                   // nothing but the usage
  bool null = false;                   // names in lists end with a NUL character
  bool progress = false;               // a progress line, terminal or not
  bool quiet = false;                  // no line for a file that is OK
  bool status = false;                 // no line for any file that is verified
  bool verbose = false;                // the library's log
  bool version = false;                // nothing but the version
  std::vector<std::string> filesFrom;  // lists of names; "-" is standard input
  std::vector<std::string> files;      // "-" is standard input
  std::vector<std::string> roots;      // where relative names are looked for first
};

// Reads the command line. Returns what is wrong with it, or an empty string.
std::string ParseOptions(const std::vector<std::string>& arguments, Options* options);

extern const char kUsage[];

#endif  // TARSIO_DIGEST_OPTIONS_H_
