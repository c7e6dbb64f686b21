#include <cstdint>
#include <ctime>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

namespace {

using SystemTime = void(WINAPI*)(FILETIME*);

// NOLINTNEXTLINE(*-non-const-global-variables): written by the first call
std::atomic<SystemTime> preciseSystemTime{nullptr};

int64_t ReadClock() noexcept {
  const SystemTime read = LoadedFunction<SystemTime>(
      preciseSystemTime, "kernel32.dll", "GetSystemTimePreciseAsFileTime", GetSystemTimeAsFileTime);
  FILETIME time{};
  read(&time);
  constexpr int64_t kTicksFrom1601To1970 = 116444736000000000;
  return (static_cast<int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime) -
         kTicksFrom1601To1970;
}

bool ToLocalTime(int64_t seconds, std::tm* local) noexcept {
  const __time64_t time = seconds;
  return ::_localtime64_s(local, &time) == 0;
}

// mingw-w64 looks up _localtime64_s on the first call. The call then rejects this time, so the
// look-up is its only effect.
bool LookUpLocalTime() noexcept {
  std::tm local{};
  return ToLocalTime(INT64_MIN, &local);
}

// Looked up when the library is loaded: later calls may come while a lock is held, since the
// library reads the clock under its locks and a timer's action may log.
[[maybe_unused]] const int64_t loadedAt = ReadClock();
[[maybe_unused]] const bool lookedUp = LookUpLocalTime();

}  // namespace

int64_t WallClockTicks() { return ReadClock(); }

bool LocalTime(int64_t seconds, std::tm* local) { return ToLocalTime(seconds, local); }

}  // namespace tarsio::platform
