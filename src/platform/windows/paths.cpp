#include <direct.h>

#include <algorithm>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

std::wstring FullPath(const std::wstring& path, size_t capacity) {
  std::wstring buffer(capacity + 1, L'\0');
  const DWORD length =
      ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(capacity), &buffer[0], nullptr);
  // If the buffer is too small, the call returns the required size and writes nothing.
  return std::wstring(buffer.c_str()).substr(0, length);
}

std::wstring CurrentDirectory(size_t capacity) {
  std::wstring buffer(capacity + 1, L'\0');
  if (::_wgetcwd(&buffer[0], static_cast<int>(capacity)) == nullptr) return {};
  return buffer.c_str();
}

}  // namespace tarsio::platform
