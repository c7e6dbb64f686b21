#include "platform/posix/native_path.h"

#include <algorithm>
#include <string_view>

#include "platform/platform.h"

namespace tarsio::platform {

namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

}  // namespace

std::string NativePath(std::string path) {
  constexpr std::string_view kLongPrefix = R"(\\?\)";
  if (std::string_view(path).substr(0, kLongPrefix.size()) == kLongPrefix) {
    path.erase(0, kLongPrefix.size());
    if (path.compare(0, 4, R"(UNC\)") == 0) return {};
  }
  if (path.empty()) return {};
  // A zero follows the last character, so there always is a second.
  if (IsSeparator(path[0]) && IsSeparator(path[1])) return {};
  if (path[1] == ':') {
    if (path[0] != 'C' && path[0] != 'c') return {};
    path.erase(0, 2);
    if (path.empty()) return ".";  // the drive alone is its current directory
  }
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

std::string NativePath(const std::wstring& path) { return NativePath(Narrow(path)); }

std::wstring FromNativePath(const std::string& native) {
  std::wstring path = L"C:" + Widen(native);
  std::replace(path.begin(), path.end(), L'/', L'\\');
  return path;
}

}  // namespace tarsio::platform
