#ifndef TARSIO_DIGEST_SYSTEM_H_
#define TARSIO_DIGEST_SYSTEM_H_

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/path.h"

// What the program needs from the operating system beyond the library. posix/system.cpp and
// windows/system.cpp implement it, and the entry point that calls Main().

constexpr bool kOnWindows = std::filesystem::path::preferred_separator == '\\';

// Runs the program. `arguments` is the command line without the program's name, in UTF-8 on
// Windows. Returns the exit status.
int Main(const std::vector<std::string>& arguments);

// Converts `path` for the standard library.
std::filesystem::path NativePath(const tarsio::Path& path);

struct FileCloser {
  // NOLINTNEXTLINE(*-owning-memory, cert-err33-c): a deleter, used only for files that are read
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Opens a file for reading in binary mode. Returns null on failure, with the cause in errno.
File OpenForReading(const std::filesystem::path& path);

// Returns true if `file` is a regular file, and not a device, a pipe or a directory.
bool IsRegularFile(std::FILE* file);

#endif  // TARSIO_DIGEST_SYSTEM_H_
