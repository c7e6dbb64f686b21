// The time in a log line, on a clock of this program's own. The library's sources are compiled into
// this program.

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "common/log.h"
#include "platform/platform.h"

namespace {

struct Clock {
  int64_t ticks = 0;
  bool local = true;  // whether the local time can be told
  std::tm time{};
  int64_t seconds = -1;  // those that the local time was asked of
};

Clock* current = nullptr;

}  // namespace

namespace tarsio::platform {

int64_t WallClockTicks() { return current->ticks; }

bool LocalTime(int64_t seconds, std::tm* local) {
  current->seconds = seconds;
  *local = current->time;  // whatever a failed call leaves behind
  return current->local;
}

// For the paths, which a line needs for a file's name alone.
std::wstring Widen(const std::string& /*utf8*/) { return {}; }
std::string Narrow(const std::wstring& /*utf16*/) { return {}; }
std::wstring FullPath(const std::wstring& /*path*/, size_t /*capacity*/) { return {}; }
std::wstring CurrentDirectory(size_t /*capacity*/) { return {}; }
ObjectKind KindOf(const std::wstring& /*path*/) { return ObjectKind::kNone; }
bool SizeFromStat(const std::wstring& /*path*/, uint64_t* /*size*/) { return false; }
bool SizeFromAttributes(const std::wstring& /*path*/, uint64_t* /*size*/) { return false; }
bool CreateOneDirectory(const std::wstring& /*path*/) { return false; }
bool CreateDirectoryChain(const std::wstring& /*path*/) { return false; }

}  // namespace tarsio::platform

namespace {

constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kTicksPerMillisecond = 10000;

class LogPlatform : public testing::Test {
 protected:
  LogPlatform() { current = &clock; }
  ~LogPlatform() override { current = nullptr; }

  static std::string Line() {
    static std::string line;
    line.clear();
    tarsio::TsLog(
        tarsio::LOG_LEVEL_INFO, [](const char* text) { line = text; },
        [] { return tarsio::LOG_LEVEL_INFO; }, "f", 1, "function", "m");
    return line;
  }

  Clock clock;
};

TEST_F(LogPlatform, NumbersOfTheTimeHaveLeadingZerosButForTheMilliseconds) {
  const struct {
    int year, month, day, hour, minute, second;
    int64_t ticks;
    const char* text;
  } rows[] = {
      {2026, 11, 21, 15, 47, 29, 123 * kTicksPerMillisecond, "2026-11-21 15:47:29.123"},
      {2024, 3, 5, 4, 7, 9, 38 * kTicksPerMillisecond, "2024-03-05 04:07:09.38"},
      {987, 1, 1, 0, 0, 0, 7 * kTicksPerMillisecond, "0987-01-01 00:00:00.7"},
      {9, 12, 31, 23, 59, 60, 0, "0009-12-31 23:59:60.0"},
      {12345, 10, 10, 10, 10, 10, kTicksPerSecond - 1, "12345-10-10 10:10:10.999"},
      {2000, 2, 29, 12, 0, 0, kTicksPerMillisecond - 1, "2000-02-29 12:00:00.0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    clock.time.tm_year = row.year - 1900;
    clock.time.tm_mon = row.month - 1;
    clock.time.tm_mday = row.day;
    clock.time.tm_hour = row.hour;
    clock.time.tm_min = row.minute;
    clock.time.tm_sec = row.second;
    clock.ticks = 77 * kTicksPerSecond + row.ticks;
    EXPECT_EQ(Line(), "[" + std::string(row.text) + "][INFO][f:1] m");
    EXPECT_EQ(clock.seconds, 77);
  }
}

TEST_F(LogPlatform, LocalTimeThatCannotBeToldIsLeftOut) {
  clock.local = false;
  clock.ticks = 45 * kTicksPerMillisecond;
  EXPECT_EQ(Line(), "[.45][INFO][f:1] m");
}

}  // namespace
