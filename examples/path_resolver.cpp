// Finding a file in an ordered list of directories.

#include <iostream>

#include "common/file_utils.h"
#include "common/path.h"

using tarsio::FileUtils;
using tarsio::PathResolver;

int main() {
  FileUtils::MakeDir("resolver-example/defaults/");
  FileUtils::MakeDir("resolver-example/overrides/");
  FileUtils::WriteFile("x", "resolver-example/defaults/colours.txt", 0);
  FileUtils::WriteFile("x", "resolver-example/defaults/sizes.txt", 0);
  FileUtils::WriteFile("x", "resolver-example/overrides/sizes.txt", 0);

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

  FileUtils::RemoveFile("resolver-example/overrides/sizes.txt");
  FileUtils::RemoveFile("resolver-example/defaults/sizes.txt");
  FileUtils::RemoveFile("resolver-example/defaults/colours.txt");
  FileUtils::RemoveDir("resolver-example/overrides");
  FileUtils::RemoveDir("resolver-example/defaults");
  FileUtils::RemoveDir("resolver-example");
  return 0;
}
