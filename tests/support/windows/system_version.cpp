#include "support/system_version.h"

#include <windows.h>

#include <cstdlib>

std::string tarsio_test::SystemVersion() {
  const auto getVersion = reinterpret_cast<LONG(WINAPI*)(OSVERSIONINFOW*)>(
      reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleA("ntdll"), "RtlGetVersion")));
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (getVersion(&version) != 0) std::abort();
  return std::to_string(version.dwMajorVersion) + '.' + std::to_string(version.dwMinorVersion);
}
