#include "platform/posix/native_path.h"

#include <algorithm>

#include "platform/platform.h"

namespace tarsio::platform {

namespace {

bool IsSeparator(char c) { return c == '\\' || c == '/'; }

}  // namespace

std::string NativePath(const std::string& path) {
  const std::string longPrefix = R"(\\?\)";
  std::string native =
      path.compare(0, longPrefix.size(), longPrefix) == 0 ? path.substr(longPrefix.size()) : path;
  if (native.size() != path.size() && native.compare(0, 4, R"(UNC\)") == 0) return {};
  if (native.size() >= 2 && IsSeparator(native[0]) && IsSeparator(native[1])) return {};
  if (native.size() >= 2 && native[1] == ':') {
    if (native[0] != 'C' && native[0] != 'c') return {};
    native.erase(0, 2);
    if (native.empty()) return ".";  // the drive alone is its current directory
  }
  std::replace(native.begin(), native.end(), '\\', '/');
  return native;
}

std::string NativePath(const std::wstring& path) { return NativePath(Narrow(path)); }

std::wstring FromNativePath(const std::string& native) {
  std::wstring path = L"C:" + Widen(native);
  std::replace(path.begin(), path.end(), L'/', L'\\');
  return path;
}

}  // namespace tarsio::platform
