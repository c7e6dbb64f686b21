#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

std::wstring Environment(const std::wstring& name, size_t capacity) {
  // A missing variable leaves the buffer as it is, and a value that is too long writes a zero.
  std::wstring buffer(capacity, L'\0');
  ::GetEnvironmentVariableW(name.c_str(), &buffer[0], static_cast<DWORD>(capacity));
  return buffer.c_str();
}

namespace {

// Passed with its size field unset (by design), so large enough for the longest form and zeroed:
// RtlGetVersion then fills the short form, in wide characters.
union VersionRecord {
  OSVERSIONINFOEXW wide;
  OSVERSIONINFOEXA narrow;
};

using RtlGetVersion = LONG(WINAPI*)(VersionRecord*);

// NOLINTNEXTLINE(*-non-const-global-variables): written by whichever call comes first
std::atomic<RtlGetVersion> rtlGetVersion{nullptr};

// For systems without RtlGetVersion.
LONG WINAPI OlderGetVersion(VersionRecord* record) {
  return ::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&record->narrow)) != 0 ? 0 : -1;
}

RtlGetVersion VersionFunction() noexcept {
  return LoadedFunction<RtlGetVersion>(rtlGetVersion, "ntdll", "RtlGetVersion", OlderGetVersion);
}

// Looked up while the library is loaded, since a timer's action may ask under the manager's lock.
[[maybe_unused]] const RtlGetVersion loadedVersionFunction = VersionFunction();

}  // namespace

std::optional<Version> RunningVersion() {
  VersionRecord record{};
  if (VersionFunction()(&record) != 0) return {};
  return Version{record.wide.dwMajorVersion, record.wide.dwMinorVersion};
}

}  // namespace tarsio::platform
