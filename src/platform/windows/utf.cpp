#include <climits>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

std::wstring Widen(const std::string& utf8) {
  if (utf8.empty() || utf8.size() >= INT_MAX) return {};
  const int size = static_cast<int>(utf8.size());
  const int length = ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, nullptr, 0);
  std::wstring text(static_cast<size_t>(length), L'\0');
  ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), size, &text[0], length);
  return text;
}

std::string Narrow(const std::wstring& utf16) {
  if (utf16.empty() || utf16.size() >= INT_MAX) return {};
  const int size = static_cast<int>(utf16.size());
  const int length =
      ::WideCharToMultiByte(CP_UTF8, 0, utf16.data(), size, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<size_t>(length), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, utf16.data(), size, &text[0], length, nullptr, nullptr);
  return text;
}

}  // namespace tarsio::platform
