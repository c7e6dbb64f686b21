// Exact times in log lines, and the log's end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

#include "common/log.h"
#include "support/fake_platform.h"

namespace {

using tarsio::Log;
using tarsio::LOG_LEVEL;
using tarsio::LOG_LEVEL_ERROR;
using tarsio::LOG_LEVEL_WARN;
using tarsio::Logger;
using testing::ElementsAre;
using testing::IsEmpty;

std::tm Calendar(int year, int month, int day, int hour, int minute, int second) {
  std::tm calendar{};
  calendar.tm_year = year - 1900;
  calendar.tm_mon = month - 1;
  calendar.tm_mday = day;
  calendar.tm_hour = hour;
  calendar.tm_min = minute;
  calendar.tm_sec = second;
  return calendar;
}

std::string Line(const char* format, ...) {
  std::string line;
  Logger logger;
  va_list args;
  va_start(args, format);
  logger.VFormat(LOG_LEVEL_ERROR, line, "a.cpp", 1, "f", format, args);
  va_end(args);
  return line;
}

void CallTsLog(LOG_LEVEL level) {
  const auto error = [] { return LOG_LEVEL_ERROR; };
  tarsio::TsLog(
      level, [](const char*) {}, error, "a.cpp", 1, "f", "text");
}

class LogOs : public testing::Test {
 protected:
  LogOs() {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    platform.localTime = Calendar(2024, 3, 5, 14, 7, 9);
  }

  tarsio_test::FakePlatform platform;
};

TEST_F(LogOs, Time) {
  const struct {
    int64_t ticks;
    const char* conversion;
    const char* milliseconds;
  } rows[] = {
      {0, "LocalTime 0", "0"},
      {9999, "LocalTime 0", "0"},
      {10000, "LocalTime 0", "1"},
      {9999999, "LocalTime 0", "999"},
      {10000000, "LocalTime 1", "0"},
      {17096476290050000, "LocalTime 1709647629", "5"},
      {17096476290389999, "LocalTime 1709647629", "38"},
      {17096476291200000, "LocalTime 1709647629", "120"},
      {42949672960000000, "LocalTime 4294967296", "0"},  // more than 32 bits of seconds
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ticks);
    platform.ticks = row.ticks;
    EXPECT_EQ(Line("x"),
              std::string("[2024-03-05 14:07:09.") + row.milliseconds + "][ERROR][a.cpp:1] x");
    EXPECT_THAT(platform.Calls(), ElementsAre("WallClockTicks", row.conversion));
  }
}

// The calendar is not cached between lines.
TEST_F(LogOs, Calendar) {
  const std::tm rows[] = {
      Calendar(1970, 1, 1, 0, 0, 0),      Calendar(1999, 12, 31, 23, 59, 59),
      Calendar(2000, 2, 29, 1, 2, 3),     Calendar(2016, 12, 31, 23, 59, 0),
      Calendar(2024, 10, 10, 10, 10, 10), Calendar(9999, 11, 30, 12, 0, 5),
  };
  for (const std::tm& row : rows) {
    std::array<char, 30> expected{};
    ASSERT_GT(std::strftime(expected.data(), expected.size(), "%Y-%m-%d %H:%M:%S", &row), 0u);
    platform.localTime = row;
    EXPECT_EQ(Line("x"), std::string("[") + expected.data() + ".0][ERROR][a.cpp:1] x");
  }
}

TEST_F(LogOs, NoLocalTime) {
  platform.localTime.reset();
  platform.ticks = 17096476290380000;
  EXPECT_EQ(Line("x"), "[.38][ERROR][a.cpp:1] x");
}

TEST_F(LogOs, OneClockRead) {
  struct Silent : Logger {
    void DoOutput(const char* /*line*/) override {}
  };
  Log::GetInstance().SetLogger(std::make_unique<Silent>());
  Log::GetInstance().DoLog(LOG_LEVEL_WARN, "a.cpp", 1, "f", "filtered");
  CallTsLog(LOG_LEVEL_WARN);
  EXPECT_THAT(platform.Calls(), IsEmpty());
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "passes");
  EXPECT_THAT(platform.Calls(), ElementsAre("WallClockTicks", "LocalTime 0"));
  CallTsLog(LOG_LEVEL_ERROR);
  EXPECT_THAT(platform.Calls(), ElementsAre("WallClockTicks", "LocalTime 0"));
}

// ---- process exit ----

// Returns an object that prints `text` when its last copy is destroyed.
std::shared_ptr<void> PrintAtEnd(const char* text) {
  return {nullptr, [text](void*) { std::fputs(text, stderr); }};
}

class PrintingSink : public Logger {
 private:
  const std::shared_ptr<void> print = PrintAtEnd("the sink\n");
};

// A log that TsLog() created would be older than the first static.
void EndTheProcess() {
  CallTsLog(LOG_LEVEL_ERROR);
  CallTsLog(LOG_LEVEL_WARN);
  static const auto older = PrintAtEnd("the older static\n");
  Log::GetInstance().SetLogger(std::make_unique<PrintingSink>());
  static const auto younger = PrintAtEnd("the younger static\n");
  std::exit(0);
}

TEST_F(LogOs, StaticOrder) {
  EXPECT_EXIT(EndTheProcess(), testing::ExitedWithCode(0),
              "the younger static.*\n.*the sink.*\n.*the older static");
}

}  // namespace
