#include "support/system_version.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace tarsio_test {

namespace {

using RtlGetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
using Code = std::array<BYTE, 20>;

Code before;

// Machine code that writes the two numbers into the caller's record and returns the status.
Code Answer(int32_t status, uint32_t major, uint32_t minor) {
  // mov dword ptr [rcx + 4], major; mov dword ptr [rcx + 8], minor; mov eax, status; ret
  Code code = {0xC7, 0x41, 4, 0, 0, 0, 0, 0xC7, 0x41, 8, 0, 0, 0, 0, 0xB8, 0, 0, 0, 0, 0xC3};
  std::memcpy(&code[3], &major, sizeof major);
  std::memcpy(&code[10], &minor, sizeof minor);
  std::memcpy(&code[15], &status, sizeof status);
  return code;
}

template <typename T>
T VersionCall() {
  return reinterpret_cast<T>(
      reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleA("ntdll"), "RtlGetVersion")));
}

// Overwrites the start of the function with `code` and returns the previous bytes.
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

// Errors, warnings and information: all values but zero.
std::vector<int32_t> SystemVersionFailures() {
  constexpr auto kUnsuccessful = static_cast<int32_t>(0xC0000001);
  constexpr auto kNoMoreFiles = static_cast<int32_t>(0x80000006);
  return {kUnsuccessful, kNoMoreFiles, 0x40000000, 1};
}

RefuseSystemVersion::RefuseSystemVersion(int32_t status) {
  before = Exchange(Answer(status, 0, 0));
}
RefuseSystemVersion::~RefuseSystemVersion() { Exchange(before); }

PretendSystemVersion::PretendSystemVersion(uint32_t major, uint32_t minor) {
  before = Exchange(Answer(0, major, minor));
}
PretendSystemVersion::~PretendSystemVersion() { Exchange(before); }

}  // namespace tarsio_test
