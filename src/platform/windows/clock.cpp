#include <ctime>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

int64_t WallClockTicks() {
  using SystemTime = void(WINAPI*)(FILETIME*);
  static const SystemTime precise =
      LoadedFunction<SystemTime>("kernel32.dll", "GetSystemTimePreciseAsFileTime");
  FILETIME time{};
  precise != nullptr ? precise(&time) : ::GetSystemTimeAsFileTime(&time);
  constexpr int64_t kTicksFrom1601To1970 = 116444736000000000;
  return (static_cast<int64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime) -
         kTicksFrom1601To1970;
}

bool LocalTime(int64_t seconds, std::tm* local) {
  const __time64_t time = seconds;
  return ::_localtime64_s(local, &time) == 0;
}

}  // namespace tarsio::platform
