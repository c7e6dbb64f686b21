#include "support/system_version.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace tarsio_test {

namespace {

using RtlGetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
using Code = std::array<BYTE, 6>;

// mov eax, STATUS_UNSUCCESSFUL; ret
constexpr Code kFail = {0xB8, 0x01, 0x00, 0x00, 0xC0, 0xC3};

Code before;

template <typename T>
T VersionCall() {
  return reinterpret_cast<T>(
      reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleA("ntdll"), "RtlGetVersion")));
}

// Puts `code` at the beginning of the call; returns what was there.
Code Exchange(const Code& code) {
  BYTE* const start = VersionCall<BYTE*>();
  DWORD protection = 0;
  if (::VirtualProtect(start, code.size(), PAGE_EXECUTE_READWRITE, &protection) == 0) std::abort();
  Code replaced{};
  std::copy_n(start, replaced.size(), replaced.begin());
  std::copy(code.begin(), code.end(), start);
  ::VirtualProtect(start, code.size(), protection, &protection);
  ::FlushInstructionCache(::GetCurrentProcess(), start, code.size());
  return replaced;
}

}  // namespace

std::string SystemVersion() {
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (VersionCall<RtlGetVersion>()(&version) != 0) std::abort();
  return std::to_string(version.dwMajorVersion) + '.' + std::to_string(version.dwMinorVersion);
}

RefuseSystemVersion::RefuseSystemVersion() { before = Exchange(kFail); }
RefuseSystemVersion::~RefuseSystemVersion() { Exchange(before); }

}  // namespace tarsio_test
