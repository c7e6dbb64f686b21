#include "support/environment.h"

#include <windows.h>

namespace tarsio_test {

namespace {

std::wstring Widen(const std::string& utf8) {
  std::wstring wide(utf8.size() + 1, L'\0');  // never longer in UTF-16
  ::MultiByteToWideChar(CP_UTF8, 0, utf8.c_str(), -1, &wide[0], static_cast<int>(wide.size()));
  return wide.c_str();
}

std::string Narrow(const std::wstring& wide) {
  std::string utf8(wide.size() * 3 + 1, '\0');  // never longer in UTF-8
  ::WideCharToMultiByte(CP_UTF8, 0, wide.c_str(), -1, &utf8[0], static_cast<int>(utf8.size()),
                        nullptr, nullptr);
  return utf8.c_str();
}

}  // namespace

std::optional<std::string> Variable(const std::string& name) {
  std::wstring value(32768, L'\0');  // longer than any value
  ::SetLastError(ERROR_SUCCESS);
  const DWORD length =
      ::GetEnvironmentVariableW(Widen(name).c_str(), &value[0], static_cast<DWORD>(value.size()));
  if (length == 0 && ::GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
  value.resize(length);
  return Narrow(value);
}

void SetVariable(const std::string& name, const std::string& value) {
  ::SetEnvironmentVariableW(Widen(name).c_str(), Widen(value).c_str());
}

void SetVariableWithBrokenCharacter(const std::string& name) {
  const wchar_t value[] = {L'a', 0xD800, L'b', L'\0'};
  ::SetEnvironmentVariableW(Widen(name).c_str(), value);
}

void UnsetVariable(const std::string& name) {
  ::SetEnvironmentVariableW(Widen(name).c_str(), nullptr);
}

}  // namespace tarsio_test
