#include "../system.h"

#include <sys/stat.h>

std::filesystem::path NativePath(const tarsio::Path& path) {
  std::string text = path.Str(tarsio::Path::POSIX_PATH);
  for (const std::string prefix : {R"(\\?\)", "C:", "c:"}) {
    if (text.compare(0, prefix.size(), prefix) == 0) text.erase(0, prefix.size());
  }
  // The library resolves ".." lexically, without following symbolic links.
  return std::filesystem::path(text).lexically_normal();
}

File OpenForReading(const std::filesystem::path& path) {
  return File(std::fopen(path.c_str(), "re"));
}

bool IsRegularFile(std::FILE* file) {
  struct stat status {};
  return ::fstat(::fileno(file), &status) == 0 && S_ISREG(status.st_mode);
}

int main(int argc, char** argv) { return Main({argv + (argc > 0 ? 1 : 0), argv + argc}); }
