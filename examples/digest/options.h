#ifndef TARSIO_DIGEST_OPTIONS_H_
#define TARSIO_DIGEST_OPTIONS_H_

#include <cstdint>
#include <string>
#include <vector>

struct Options {
  uint64_t jobs = 1;                   // number of workers
  bool check = false;                  // `files` are lists to verify
  bool help = false;                   // print only the usage
  bool null = false;                   // names in `filesFrom` end with a NUL character
  bool progress = false;               // show progress even without a terminal
  bool quiet = false;                  // print no line for a file that is OK
  bool status = false;                 // print no line for any verified file
  bool verbose = false;                // show the library's log
  bool version = false;                // print only the version
  std::vector<std::string> filesFrom;  // lists of names; "-" is standard input
  std::vector<std::string> files;      // "-" is standard input
  std::vector<std::string> roots;      // searched for relative names first
};

// Parses the command line. Returns an error message, or an empty string.
std::string ParseOptions(const std::vector<std::string>& arguments, Options* options);

extern const char kUsage[];

#endif  // TARSIO_DIGEST_OPTIONS_H_
