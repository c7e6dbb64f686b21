// Finding a file in an ordered list of directories.

//! [includes]
#include <iostream>

#include "common/file_utils.h"
#include "common/path.h"

using tarsio::FileUtils;
using tarsio::PathResolver;
//! [includes]

namespace {

bool WriteFile(const char* path) {
  return FileUtils::WriteFile("x", path, 0) == tarsio::FILE_OPT_SUCCESS;
}

}  // namespace

int main() {
  const bool made = FileUtils::MakeDir("resolver-example/defaults/") &&
                    FileUtils::MakeDir("resolver-example/overrides/") &&
                    WriteFile("resolver-example/defaults/colours.txt") &&
                    WriteFile("resolver-example/defaults/sizes.txt") &&
                    WriteFile("resolver-example/overrides/sizes.txt");
  if (!made) return 1;

  //! [resolver]
  PathResolver resolver;
  resolver.Erase(resolver.begin());  // the current directory
  resolver.Append("resolver-example/defaults");
  resolver.Prepend("resolver-example/overrides");
  std::cout << resolver << '\n'
            << resolver.Resolve("sizes.txt") << '\n'
            << resolver.Resolve("colours.txt") << '\n'
            << resolver.Resolve("nowhere.txt") << '\n';
  //! [resolver]

  const bool removed = FileUtils::RemoveFile("resolver-example/overrides/sizes.txt") &&
                       FileUtils::RemoveFile("resolver-example/defaults/sizes.txt") &&
                       FileUtils::RemoveFile("resolver-example/defaults/colours.txt") &&
                       FileUtils::RemoveDir("resolver-example/overrides") &&
                       FileUtils::RemoveDir("resolver-example/defaults") &&
                       FileUtils::RemoveDir("resolver-example");
  return removed ? 0 : 1;
}
