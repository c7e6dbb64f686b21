// Writing and reading whole files in one call.

//! [includes]
#include "common/file_utils.h"

#include <iostream>
#include <string>

using tarsio::FileUtils;
//! [includes]

int main() {
  constexpr int kBinary = 0x20;
  constexpr int kAppend = 0x08;
  const std::string name = "files-example/note.txt";

  //! [making]
  // Creates only the directories whose names are followed by a separator.
  std::cout << std::boolalpha << "directory made: " << FileUtils::MakeDir(name) << '\n';
  //! [making]
  //! [writing]
  // The content is the first argument.
  std::cout << "written:  " << FileUtils::WriteFile("first\n", name, kBinary) << '\n'
            << "appended: " << FileUtils::WriteFile("second\n", name, kBinary | kAppend) << '\n';
  //! [writing]

  //! [reading]
  std::string content;
  std::cout << "read:     " << FileUtils::GetFileContent(name, content) << '\n' << content;
  std::cout << "missing:  " << FileUtils::GetFileContent("files-example/none.txt", content) << '\n'
            << "bare:     " << FileUtils::WriteFile("", "bare-name.txt", 0) << '\n';
  //! [reading]

  //! [removing]
  std::cout << "removed:  " << FileUtils::RemoveFile(name) << ", "
            << FileUtils::RemoveDir("files-example") << '\n';
  //! [removing]
  return 0;
}
