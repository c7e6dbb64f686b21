// Exact times in log lines. The log's source is compiled into this program with a fake platform.

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
#include <vector>

#include "common/log.h"
#include "platform/platform.h"

namespace {

using tarsio::Log;
using tarsio::LOG_LEVEL;
using tarsio::LOG_LEVEL_ERROR;
using tarsio::LOG_LEVEL_WARN;
using tarsio::Logger;
using testing::ElementsAre;
using testing::IsEmpty;

struct System {
  int64_t ticks = 0;
  std::tm calendar{};
  bool converts = true;
  int clockAsked = 0;
  std::vector<int64_t> converted;  // arguments of the conversion
};

System* current = nullptr;

}  // namespace

namespace tarsio {
namespace platform {

int64_t WallClockTicks() {
  ++current->clockAsked;
  return current->ticks;
}

bool LocalTime(int64_t seconds, std::tm* local) {
  current->converted.push_back(seconds);
  *local = current->calendar;  // a failed call may modify it, too
  return current->converts;
}

bool ProcessIsEnding() { return false; }
int ForkCount() { return 0; }

// Not needed for a line.
std::wstring Widen(const std::string& /*utf8*/) { std::abort(); }
std::string Narrow(const std::wstring& /*utf16*/) { std::abort(); }
std::wstring FullPath(const std::wstring& /*path*/, size_t /*capacity*/) { std::abort(); }
std::wstring CurrentDirectory(size_t /*capacity*/) { std::abort(); }
FileType TypeOf(const std::wstring& /*path*/) { std::abort(); }
uint64_t SizeOf(const std::wstring& /*path*/) { std::abort(); }
bool CreateOneDirectory(const std::wstring& /*path*/) { std::abort(); }
bool CreateDirectories(const std::wstring& /*path*/) { std::abort(); }

int StandardOutputSignal() { return 0; }
ScopedSignalBlock::ScopedSignalBlock(int signal) : blocked(signal) {}
void ScopedSignalBlock::DiscardAndUnblock() const {}

}  // namespace platform
}  // namespace tarsio

namespace {

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

class LogOs : public testing::Test {
 protected:
  LogOs() {
    current = &system;
    system.calendar = Calendar(2024, 3, 5, 14, 7, 9);
  }
  ~LogOs() override { current = nullptr; }

  System system;
};

TEST_F(LogOs, Time) {
  const struct {
    int64_t ticks;
    int64_t seconds;
    const char* milliseconds;
  } rows[] = {
      {0, 0, "0"},
      {9999, 0, "0"},
      {10000, 0, "1"},
      {79999, 0, "7"},
      {9989999, 0, "998"},
      {9999999, 0, "999"},
      {10000000, 1, "0"},
      {17096476290050000, 1709647629, "5"},
      {17096476290380000, 1709647629, "38"},
      {17096476290389999, 1709647629, "38"},
      {17096476291200000, 1709647629, "120"},
      {17096476299999999, 1709647629, "999"},
      {17096476300000000, 1709647630, "0"},
      {42949672960000000, 4294967296, "0"},  // more than 32 bits of seconds
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ticks);
    system.ticks = row.ticks;
    system.converted.clear();
    EXPECT_EQ(Line("x"),
              std::string("[2024-03-05 14:07:09.") + row.milliseconds + "][ERROR][a.cpp:1] x");
    EXPECT_THAT(system.converted, ElementsAre(row.seconds));
  }
}

TEST_F(LogOs, Calendar) {
  const std::tm rows[] = {
      Calendar(1970, 1, 1, 0, 0, 0),      Calendar(1999, 12, 31, 23, 59, 59),
      Calendar(2000, 2, 29, 1, 2, 3),     Calendar(2016, 12, 31, 23, 59, 0),
      Calendar(2024, 10, 10, 10, 10, 10), Calendar(9999, 11, 30, 12, 0, 5),
  };
  for (const std::tm& row : rows) {
    std::array<char, 30> expected{};
    ASSERT_GT(std::strftime(expected.data(), expected.size(), "%Y-%m-%d %H:%M:%S", &row), 0u);
    system.calendar = row;
    EXPECT_EQ(Line("x"), std::string("[") + expected.data() + ".0][ERROR][a.cpp:1] x");
  }
}

TEST_F(LogOs, NoLocalTime) {
  system.converts = false;
  system.ticks = 17096476290380000;
  EXPECT_EQ(Line("x"), "[.38][ERROR][a.cpp:1] x");
}

TEST_F(LogOs, OneClockRead) {
  struct Silent : Logger {
    void DoOutput(const char* /*line*/) override {}
  };
  Log::GetInstance().SetLogger(std::make_unique<Silent>());
  Log::GetInstance().DoLog(LOG_LEVEL_WARN, "a.cpp", 1, "f", "filtered");
  const auto error = [] { return LOG_LEVEL_ERROR; };
  const auto ignore = [](const char*) {};
  tarsio::TsLog(LOG_LEVEL_WARN, ignore, error, "a.cpp", 1, "f", "filtered");
  EXPECT_EQ(system.clockAsked, 0);
  EXPECT_THAT(system.converted, IsEmpty());

  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "passes");
  EXPECT_EQ(system.clockAsked, 1);
  tarsio::TsLog(LOG_LEVEL_ERROR, ignore, error, "a.cpp", 1, "f", "passes");
  EXPECT_EQ(system.clockAsked, 2);
  EXPECT_EQ(system.converted.size(), 2u);
  Log::GetInstance().SetLogger(std::make_unique<Logger>());
}

// The calendar is not cached between lines.
TEST_F(LogOs, TimePerLine) {
  EXPECT_EQ(Line("x"), "[2024-03-05 14:07:09.0][ERROR][a.cpp:1] x");
  system.calendar = Calendar(2024, 3, 5, 15, 7, 9);  // the same time in another zone
  EXPECT_EQ(Line("x"), "[2024-03-05 15:07:09.0][ERROR][a.cpp:1] x");
}

// ---- process exit ----

// Prints a message when it is destroyed.
struct Reporting {
  explicit Reporting(const char* lastWords) : text(lastWords) {}
  Reporting(const Reporting&) = delete;
  Reporting& operator=(const Reporting&) = delete;
  ~Reporting() { std::fputs(text, stderr); }

  const char* const text;
};

class ReportingSink : public Logger {
 private:
  const Reporting reporting{"the sink\n"};
};

void EndTheProcess() {
  static const Reporting older("the older static\n");
  Log::GetInstance().SetLogger(std::make_unique<ReportingSink>());
  static const Reporting younger("the younger static\n");
  std::exit(0);
}

TEST_F(LogOs, StaticOrder) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(EndTheProcess(), testing::ExitedWithCode(0),
              "the younger static.*\n.*the sink.*\n.*the older static");
}

void EndTheProcessAfterCallbacks() {
  const auto error = [] { return LOG_LEVEL_ERROR; };
  const auto ignore = [](const char*) {};
  tarsio::TsLog(LOG_LEVEL_ERROR, ignore, error, "a.cpp", 1, "f", "passes");
  tarsio::TsLog(LOG_LEVEL_WARN, ignore, error, "a.cpp", 1, "f", "filtered");
  static const Reporting afterThem("the static after them\n");
  Log::GetInstance().SetLogger(std::make_unique<ReportingSink>());
  std::exit(0);
}

// A log built by TsLog() would be older than the static and destroyed after it.
TEST_F(LogOs, CallbackForm) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(EndTheProcessAfterCallbacks(), testing::ExitedWithCode(0),
              "the sink.*\n.*the static after them");
}

}  // namespace
