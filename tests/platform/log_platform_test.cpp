// Exact times in log lines, and the log's end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "common/log.h"
#include "support/fake_platform.h"
#include "support/gate.h"

namespace {

using tarsio::Log;
using tarsio::LOG_LEVEL;
using tarsio::LOG_LEVEL_ERROR;
using tarsio::LOG_LEVEL_WARN;
using tarsio::Logger;
using testing::ElementsAre;
using testing::ExitedWithCode;
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

std::string Line(int line, const char* format, ...) {
  std::string text;
  Logger logger;
  va_list args;
  va_start(args, format);
  logger.VFormat(LOG_LEVEL_ERROR, text, "a.cpp", line, "f", format, args);
  va_end(args);
  return text;
}

void CallLog(LOG_LEVEL level) { Log::GetInstance().DoLog(level, "a.cpp", 1, "f", "text"); }

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
    EXPECT_EQ(Line(1, "x"),
              std::string("[2024-03-05 14:07:09.") + row.milliseconds + "][ERROR][a.cpp:1] x");
    EXPECT_THAT(platform.Calls(), ElementsAre("WallClockTicks", row.conversion));
  }
  platform.localTime.reset();  // the conversion fails
  EXPECT_EQ(Line(1, "x"), "[.0][ERROR][a.cpp:1] x");
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
    EXPECT_EQ(Line(1, "x"), std::string("[") + expected.data() + ".0][ERROR][a.cpp:1] x");
  }
}

TEST_F(LogOs, NoGrouping) {
  struct GroupsDigits : std::numpunct<char> {
    std::string do_grouping() const override { return "\1"; }
  };
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new GroupsDigits));
  std::ostringstream control;
  control << 12;
  ASSERT_EQ(control.str(), "1,2");
  platform.ticks = 9999999;
  EXPECT_EQ(Line(1234567, "%d", 7654321),
            "[2024-03-05 14:07:09.999][ERROR][a.cpp:1234567] 7654321");
  std::locale::global(before);
}

TEST_F(LogOs, OneClockRead) {
  struct Silent : Logger {
    void DoOutput(const char* /*line*/) override {}
  };
  Log::GetInstance().SetLogger(std::make_unique<Silent>());
  for (const auto call : {CallLog, CallTsLog}) {
    call(LOG_LEVEL_WARN);
    EXPECT_THAT(platform.Calls(), IsEmpty()) << "filtered";
    call(LOG_LEVEL_ERROR);
    EXPECT_THAT(platform.Calls(), ElementsAre("WallClockTicks", "LocalTime 0"));
  }
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
  EXPECT_EXIT(EndTheProcess(), ExitedWithCode(0),
              "the younger static.*\n.*the sink.*\n.*the older static");
}

// A sink whose second line never ends.
class StuckSink : public Logger {
 public:
  StuckSink() = default;
  StuckSink(const StuckSink&) = delete;
  StuckSink& operator=(const StuckSink&) = delete;
  ~StuckSink() override { std::_Exit(1); }
  void DoOutput(const char* /*line*/) override {
    if (++lines == 1) return;
    stuck.Open();
    tarsio_test::Gate().Wait();
  }

  tarsio_test::Gate stuck;

 private:
  int lines = 0;
};

void EndWhileTheSinkIsStuck() {
  auto owned = std::make_unique<StuckSink>();
  StuckSink& sink = *owned;
  Log::GetInstance().SetLogger(std::move(owned));
  CallLog(LOG_LEVEL_ERROR);
  std::thread(CallLog, LOG_LEVEL_ERROR).detach();
  sink.stuck.Wait();
  std::exit(0);
}

// The log waits a while for the line, and does not destroy the sink.
TEST_F(LogOs, StuckSink) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EXIT(EndWhileTheSinkIsStuck(), ExitedWithCode(0), "");
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(250));
}

// The system has ended the other threads, so there is nothing to wait for.
TEST_F(LogOs, EndingProcess) {
  platform.processIsEnding = true;
  platform.event = [] { std::_Exit(2); };
  platform.eventAt = 5;  // after four calls for the lines: the log does not ask twice
  EXPECT_EXIT(EndWhileTheSinkIsStuck(), ExitedWithCode(0), "");
}

}  // namespace
