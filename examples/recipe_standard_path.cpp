// Conversions to and from std::filesystem::path.

//! [includes]
#include <filesystem>
#include <iostream>
#include <string>

#include "common/path.h"
//! [includes]

namespace {

//! [conversions]
std::filesystem::path ToStandard(const tarsio::Path& path) {
#ifdef _WIN32
  return path.Wstr();
#else
  const std::string name = path.Absolute().Str(tarsio::Path::POSIX_PATH);  // C:/a/b
  return std::filesystem::path("/") / name.substr(name.find(':') + 1);
#endif
}

tarsio::Path FromStandard(const std::filesystem::path& path) {
#ifdef _WIN32
  return path.wstring();
#else
  return "C:" + std::filesystem::absolute(path).string();
#endif
}
//! [conversions]

}  // namespace

int main() {
  const std::filesystem::path here = std::filesystem::current_path();
  std::cout << std::boolalpha << "to:   " << (ToStandard(tarsio::Path::Getcwd()) == here) << '\n'
            << "from: " << (FromStandard(here).Str() == tarsio::Path::Getcwd().Str()) << '\n';
  return 0;
}
