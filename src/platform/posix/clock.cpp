#include <chrono>
#include <ctime>
#include <ratio>

#include "platform/platform.h"

namespace tarsio::platform {

int64_t WallClockTicks() {
  using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10000000>>;
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<Ticks>(now).count();
}

bool LocalTime(int64_t seconds, std::tm* local) {
  const std::time_t time = seconds;
  return ::localtime_r(&time, local) != nullptr;
}

}  // namespace tarsio::platform
