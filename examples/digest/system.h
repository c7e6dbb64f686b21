#ifndef TARSIO_DIGEST_SYSTEM_H_
#define TARSIO_DIGEST_SYSTEM_H_

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/path.h"

// What the program needs from the operating system beyond the library. posix/system.cpp and
// windows/system.cpp supply it, and the entry point that calls Main().

constexpr bool kOnWindows = std::filesystem::path::preferred_separator == '\\';

// The program. `arguments` are those of the command line, in UTF-8 on Windows, without the
// program's name. Returns the exit status.
int Main(const std::vector<std::string>& arguments);

// `path` as the standard library takes it.
std::filesystem::path NativePath(const tarsio::Path& path);

struct FileCloser {
  // NOLINTNEXTLINE(*-owning-memory, cert-err33-c): the owner's deleter, of files that are read
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Opens a file for reading bytes. Null, with the cause in errno, if that fails.
File OpenForReading(const std::filesystem::path& path);

// Whether `file` is a file with a size: not a device, a pipe or a directory.
bool IsRegularFile(std::FILE* file);

#endif  // TARSIO_DIGEST_SYSTEM_H_
