#include "options.h"

#include <algorithm>
#include <thread>

const char kUsage[] =
    R"(usage: tarsio-digest [OPTION]... [FILE | -]...

Prints the SHA-256 digest of each FILE, in the order given, as sha256sum does.
"-" reads names from standard input, one per line. Names are UTF-8.

  --jobs N    read and digest with N workers, 1 to 1024 (default: one per processor)
  --root DIR  look for relative names under DIR before the current directory;
              repeat it for more, looked through in the order given
  --progress  show a progress line even where standard error is no terminal
  --quiet     leave out the summary at the end
  --version   print the version and the system, and nothing else

Exit status: 0, 1 if a file failed, 2 for options that are not understood.
)";

namespace {

constexpr uint64_t kLargestJobs = 1024;

// 0 for anything but a number from 1 to kLargestJobs.
uint64_t ParseJobs(const std::string& text) {
  uint64_t jobs = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return 0;
    jobs = jobs * 10 + static_cast<uint64_t>(c - '0');
    if (jobs > kLargestJobs) return 0;
  }
  return jobs;
}

}  // namespace

bool ParseOptions(const std::vector<std::string>& arguments, Options* options) {
  options->jobs = std::max(1U, std::thread::hardware_concurrency());
  bool optionsEnded = false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    const bool hasValue = i + 1 < arguments.size();
    if (optionsEnded || argument.size() < 2 || argument[0] != '-') {
      options->names.push_back(argument);
    } else if (argument == "--") {
      optionsEnded = true;
    } else if (argument == "--quiet") {
      options->quiet = true;
    } else if (argument == "--progress") {
      options->progress = true;
    } else if (argument == "--version") {
      options->version = true;
    } else if (argument == "--root" && hasValue) {
      options->roots.push_back(arguments[++i]);
    } else if (argument == "--jobs" && hasValue) {
      options->jobs = ParseJobs(arguments[++i]);
      if (options->jobs == 0) return false;
    } else {
      return false;
    }
  }
  return options->version || !options->names.empty();
}
