#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

std::wstring Environment(const std::wstring& name, size_t capacity) {
  // A missing variable leaves the buffer unchanged; a value that is too long writes a zero.
  std::wstring buffer(capacity, L'\0');
  ::GetEnvironmentVariableW(name.c_str(), &buffer[0], static_cast<DWORD>(capacity));
  return buffer.c_str();
}

namespace {

// Passed with its size field unset (by design), so it is zeroed and large enough for the longest
// form. RtlGetVersion then fills the short form, with wide characters.
union VersionRecord {
  OSVERSIONINFOEXW wide;
  OSVERSIONINFOEXA narrow;
};

using RtlGetVersion = LONG(WINAPI*)(VersionRecord*);

// NOLINTNEXTLINE(*-non-const-global-variables): written by the first call
std::atomic<RtlGetVersion> rtlGetVersion{nullptr};

// Replaces RtlGetVersion on systems without it.
LONG WINAPI OlderGetVersion(VersionRecord* record) {
  return ::GetVersionExA(reinterpret_cast<OSVERSIONINFOA*>(&record->narrow)) != 0 ? 0 : -1;
}

RtlGetVersion VersionFunction() noexcept {
  return LoadedFunction<RtlGetVersion>(rtlGetVersion, "ntdll", "RtlGetVersion", OlderGetVersion);
}

// Looked up when the library is loaded, since a timer's action may need it while the manager's lock
// is held.
[[maybe_unused]] const RtlGetVersion loadedVersionFunction = VersionFunction();

}  // namespace

std::optional<Version> RunningVersion() {
  VersionRecord record{};
  if (VersionFunction()(&record) != 0) return {};
  return Version{record.wide.dwMajorVersion, record.wide.dwMinorVersion};
}

}  // namespace tarsio::platform
