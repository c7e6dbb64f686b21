#include "options.h"

#include <algorithm>
#include <thread>

#include "names.h"

const char kUsage[] =
    R"(usage: tarsio-digest [OPTION]... [FILE]...
       tarsio-digest --check [OPTION]... [LIST]...

Prints the SHA-256 digest of each FILE, or verifies the digests in each LIST, in
the order given and in the form of sha256sum. Without FILE or LIST, and for "-",
reads standard input. Names are UTF-8. Files and standard input are read whole
into memory.

      --check            verify the files in each LIST
      --files-from LIST  digest the files named in LIST, one per line, after each
                         FILE; repeatable; "-" is standard input
  -h, --help             print this help and exit
      --jobs N           use N workers, 1 to 1024 (default: one per processor)
      --null             names in a --files-from LIST end with a NUL character
      --progress         show progress even if standard error is not a terminal
      --quiet            with --check, print no line for a file that is OK
      --root DIR         look for relative names in DIR before the current
                         directory; repeatable, searched in the order given
      --status           with --check, print no line for any file
      --verbose          write the log to standard error
      --version          print the version and exit

Exit status: 0, 1 if a file or a check failed, 2 for a wrong command line.
)";

namespace {

constexpr uint64_t kLargestJobs = 1024;

struct Flag {
  const char* name;
  bool Options::*member;
};

constexpr Flag kFlags[] = {
    {"--check", &Options::check},
    {"--help", &Options::help},
    {"-h", &Options::help},
    {"--null", &Options::null},
    {"--progress", &Options::progress},
    {"--quiet", &Options::quiet},
    {"--status", &Options::status},
    {"--verbose", &Options::verbose},
    {"--version", &Options::version},
};

// Returns 0 unless `text` is a number from 1 to kLargestJobs.
uint64_t ParseJobs(const std::string& text) {
  uint64_t jobs = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return 0;
    jobs = jobs * 10 + static_cast<uint64_t>(c - '0');
    if (jobs > kLargestJobs) return 0;
  }
  return jobs;
}

bool TakesValue(const std::string& name) {
  return name == "--files-from" || name == "--jobs" || name == "--root";
}

// Returns an error message, or an empty string.
std::string SetValue(const std::string& name, const std::string& value, Options* options) {
  if (name == "--files-from") {
    options->filesFrom.push_back(value);
  } else if (name == "--jobs") {
    options->jobs = ParseJobs(value);
    if (options->jobs == 0) return "--jobs takes a number from 1 to 1024, not " + Quoted(value);
  } else {
    const char* const objection = WhyUnnamable(value);
    if (objection != nullptr) return Quoted(value) + ": " + objection;
    options->roots.push_back(value);
  }
  return {};
}

bool SetFlag(const std::string& name, Options* options) {
  const auto* const flag = std::find_if(std::begin(kFlags), std::end(kFlags),
                                        [&name](const Flag& known) { return name == known.name; });
  if (flag == std::end(kFlags)) return false;
  options->*flag->member = true;
  return true;
}

std::string Conflict(const Options& options) {
  if (options.check && !options.filesFrom.empty()) {
    return "--files-from has no meaning with --check";
  }
  if (options.status && !options.check) return "--status has a meaning only with --check";
  if (options.quiet && !options.check) return "--quiet has a meaning only with --check";
  if (options.null && options.filesFrom.empty()) {
    return "--null has a meaning only with --files-from";
  }
  return {};
}

}  // namespace

std::string ParseOptions(const std::vector<std::string>& arguments, Options* options) {
  options->jobs = std::max(1U, std::thread::hardware_concurrency());
  bool optionsEnded = false;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (optionsEnded || argument.size() < 2 || argument[0] != '-') {
      options->files.push_back(argument);
      continue;
    }
    if (argument == "--") {
      optionsEnded = true;
      continue;
    }
    const size_t equals = argument.find('=');  // --jobs=2
    const std::string name = argument.substr(0, equals);
    if (TakesValue(name)) {
      const bool isNext = equals == std::string::npos;
      if (isNext && ++i == arguments.size()) return name + " needs a value";
      const std::string value = isNext ? arguments[i] : argument.substr(equals + 1);
      std::string wrong = SetValue(name, value, options);
      if (!wrong.empty()) return wrong;
    } else if (!SetFlag(argument, options)) {
      return "unknown option " + Quoted(argument);
    }
    if (options->help || options->version) return {};
  }
  if (options->files.empty() && options->filesFrom.empty()) options->files.emplace_back("-");
  return Conflict(*options);
}
