// A search path of include directories, like a compiler's.

//! [includes]
#include <iostream>
#include <string>

#include "common/file_utils.h"
#include "common/path.h"

using tarsio::FileUtils;
using tarsio::Path;
//! [includes]

namespace {

//! [search]
// Resolve() returns the name unchanged if it finds nothing, and also finds directories.
bool FindInclude(const tarsio::PathResolver& directories, const std::string& name, Path& found) {
  found = directories.Resolve(name);
  return found.IsFile();
}
//! [search]

bool WriteFile(const char* path) {
  return FileUtils::WriteFile("x", path, 0) == tarsio::FILE_OPT_SUCCESS;
}

}  // namespace

int main() {
  const bool made =
      FileUtils::MakeDir("recipe-includes/system/") && FileUtils::MakeDir("recipe-includes/own/") &&
      WriteFile("recipe-includes/system/stdio.h") && WriteFile("recipe-includes/own/config.h") &&
      WriteFile("recipe-includes/system/config.h");
  if (!made) return 1;

  //! [directories]
  tarsio::PathResolver directories;
  directories.Erase(directories.begin());  // the current directory
  directories.Append("recipe-includes/own");
  directories.Append("recipe-includes/system");
  //! [directories]
  for (const char* const name : {"config.h", "stdio.h", "missing.h"}) {
    Path found;
    if (FindInclude(directories, name, found)) {
      std::cout << name << ": " << found.Str(Path::POSIX_PATH) << '\n';
    } else {
      std::cout << name << ": not found\n";
    }
  }

  const bool removed = FileUtils::RemoveFile("recipe-includes/system/stdio.h") &&
                       FileUtils::RemoveFile("recipe-includes/own/config.h") &&
                       FileUtils::RemoveFile("recipe-includes/system/config.h") &&
                       FileUtils::RemoveDir("recipe-includes/system") &&
                       FileUtils::RemoveDir("recipe-includes/own") &&
                       FileUtils::RemoveDir("recipe-includes");
  return removed ? 0 : 1;
}
