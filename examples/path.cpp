// Paths as values: parse, join, take apart, print.

//! [includes]
#include "common/path.h"

#include <iostream>
#include <string>
#include <vector>

using tarsio::Path;
//! [includes]

int main() {
  //! [taking apart]
  const Path work("C:\\data");
  const Path file = work / "reports/2024/summary.tar.gz";
  std::cout << "joined:    " << file << '\n'
            << "printed:   " << file.Str(Path::POSIX_PATH) << '\n'
            << "parent:    " << file.ParentPath() << '\n'
            << "name:      " << file.Filename() << '\n'
            << "extension: " << file.Extension() << '\n'
            << "length:    " << file.Length() << " components\n";
  //! [taking apart]

  //! [share]
  const Path share(R"(\\?\UNC\server\share\f)");
  std::cout << "share:     " << share << '\n';
  //! [share]

  //! [components]
  std::vector<std::string> names;
  for (Path p = file; !p.Empty(); p = p.ParentPath()) names.insert(names.begin(), p.Filename());
  //! [components]
  std::cout << "third:     " << names[2] << '\n';

  //! [join]
  // Appending an absolute path has no effect.
  std::cout << "unchanged: " << work / "C:\\other" << '\n';
  //! [join]

  //! [posix]
  Path posix;
  posix.Set("/usr/lib", Path::POSIX_PATH);
  std::cout << "POSIX:     " << posix.Str(Path::POSIX_PATH) << '\n'
            << "here:      " << std::boolalpha << Path::Getcwd().IsDirectory() << '\n';
  //! [posix]
  return 0;
}
