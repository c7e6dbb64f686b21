#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

std::wstring Environment(const std::wstring& name, size_t capacity) {
  // A missing variable leaves the buffer as it is, and a value that is too long writes a zero.
  std::wstring buffer(capacity, L'\0');
  ::GetEnvironmentVariableW(name.c_str(), &buffer[0], static_cast<DWORD>(capacity));
  return buffer.c_str();
}

std::optional<Version> RunningVersion() {
  using RtlGetVersion = LONG(WINAPI*)(void*);
  static const auto rtlGetVersion = LoadedFunction<RtlGetVersion>("ntdll", "RtlGetVersion");
  // Handed over with its size field unset, deliberately, so large enough for the longest form and
  // zeroed: RtlGetVersion then fills the short form, in wide characters.
  union {
    OSVERSIONINFOEXW wide;
    OSVERSIONINFOEXA narrow;
  } record{};
  if (rtlGetVersion != nullptr) {
    if (rtlGetVersion(&record.wide) != 0) return {};
  } else if (::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&record.narrow)) == 0) {
    return {};
  }
  return Version{record.wide.dwMajorVersion, record.wide.dwMinorVersion};
}

}  // namespace tarsio::platform
