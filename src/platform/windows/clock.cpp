#include <ctime>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

namespace {

using SystemTime = void(WINAPI*)(FILETIME*);

// NOLINTNEXTLINE(*-non-const-global-variables): written by whichever call comes first
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

// Looked up while the library is loaded, since the clock is read under the library's locks.
[[maybe_unused]] const int64_t loadedAt = ReadClock();

}  // namespace

int64_t WallClockTicks() { return ReadClock(); }

bool LocalTime(int64_t seconds, std::tm* local) {
  const __time64_t time = seconds;
  return ::_localtime64_s(local, &time) == 0;
}

}  // namespace tarsio::platform
