#include "common/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <functional>
#include <iomanip>
#include <iostream>
#include <locale>
#include <memory>
#include <new>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/allocations.h"
#include "support/background_call.h"
#include "support/cout_recorder.h"
#include "support/file_obstacles.h"
#include "support/gate.h"
#include "support/recording_logger.h"
#include "support/scoped_time_zone.h"

// The log's sink, which has no accessor. An explicit instantiation may name private members.
std::unique_ptr<tarsio::Logger>& OwnerOf(tarsio::Log& log);
template <std::unique_ptr<tarsio::Logger> tarsio::Log::*kOwner>
struct OwnerAccess {
  friend std::unique_ptr<tarsio::Logger>& OwnerOf(tarsio::Log& log) { return log.*kOwner; }
};
template struct OwnerAccess<&tarsio::Log::logger>;

// The formats come from tables; some have no arguments.
#pragma GCC diagnostic ignored "-Wformat-security"

namespace {

using tarsio::Log;
using tarsio::LOG_LEVEL;
using tarsio::LOG_LEVEL_DEBUG;
using tarsio::LOG_LEVEL_ERROR;
using tarsio::LOG_LEVEL_FATAL;
using tarsio::LOG_LEVEL_INFO;
using tarsio::LOG_LEVEL_WARN;
using tarsio::Logger;
using tarsio::TsLog;
using tarsio_test::AllocationWatch;
using tarsio_test::BackgroundCall;
using tarsio_test::CoutRecorder;
using tarsio_test::Gate;
using tarsio_test::kAllocationsOfTheLibraryAreSeen;
using tarsio_test::LogRecord;
using tarsio_test::LogRecords;
using tarsio_test::ScopedTimeZone;
using testing::ElementsAre;

constexpr int kAllLevels[] = {INT_MIN, -1, 0, 1, 2, 3, 4, 5, 7, INT_MAX};
constexpr LOG_LEVEL kEverything = static_cast<LOG_LEVEL>(INT_MAX);

LOG_LEVEL Level(int value) { return static_cast<LOG_LEVEL>(value); }

// ---- declarations ----

static_assert(std::is_same<std::underlying_type<LOG_LEVEL>::type, int32_t>::value, "");
static_assert(LOG_LEVEL_FATAL == 0 && LOG_LEVEL_ERROR == 1 && LOG_LEVEL_WARN == 2 &&
                  LOG_LEVEL_INFO == 3 && LOG_LEVEL_DEBUG == 4,
              "unscoped, numbered by severity");
static_assert(std::is_default_constructible<Logger>::value, "");
static_assert(std::has_virtual_destructor<Logger>::value, "");
static_assert(sizeof(Logger) == sizeof(void*), "no data but the vtable pointer");
static_assert(!std::is_default_constructible<Log>::value, "a singleton");
static_assert(!std::is_destructible<Log>::value, "destroyed at process exit only");
static_assert(!std::is_copy_constructible<Log>::value && !std::is_copy_assignable<Log>::value, "");

// ---- helpers ----

// The state of the log before main(), before any test can change it.
struct FreshLog {
  std::set<Log*> instances;  // seen by the first callers, on many threads
  std::vector<std::string> events;
};

FreshLog ObserveFreshLog() {
  FreshLog fresh;
  std::array<Log*, 8> seen{};
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (Log*& instance : seen) {
    threads.emplace_back([&go, &instance] {
      while (!go) std::this_thread::yield();
      instance = &Log::GetInstance();
    });
  }
  go = true;
  for (std::thread& thread : threads) thread.join();
  fresh.instances.insert(seen.begin(), seen.end());

  const CoutRecorder out;
  for (const int level : {0, 1, 2, 3, 4}) {
    Log::GetInstance().DoLog(Level(level), "a.cpp", 1, "f", "fresh %d", level);
  }
  fresh.events = out.Events();
  return fresh;
}

const FreshLog kFreshLog = ObserveFreshLog();

// Checks the time of a line and masks it: "[<TIME>][WARN][a.cpp:1] text".
std::string MaskTime(const std::string& line) {
  static const std::regex form(
      R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.(0|[1-9]\d{0,2}))");  // milliseconds 0..999, not padded
  const size_t end = line.find(']');
  if (end == std::string::npos || !std::regex_match(line.substr(0, end), form)) {
    return "no time: " + line;
  }
  return "[<TIME>" + line.substr(end);
}

// Starts each test with the initial threshold and sink, and restores them afterwards.
class CleanLog : public testing::Test {
 protected:
  CleanLog() { Reset(); }
  ~CleanLog() override { Reset(); }

 private:
  static void Reset() {
    Log::GetInstance().SetLogger(std::make_unique<Logger>());
    Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
  }
};
class LogTest : public CleanLog {};
class LoggerTest : public CleanLog {};
class TsLogTest : public CleanLog {};
class LogLine : public CleanLog {};

// The calls to a sink and its destruction.
struct SinkHistory {
  int destroyed = 0;
  std::vector<std::string> calls;
};

// Records each call with its arguments. Its layout differs from the default.
class NotingSink : public Logger {
 public:
  explicit NotingSink(std::shared_ptr<SinkHistory> target) : history(std::move(target)) {}
  NotingSink(const NotingSink&) = delete;
  NotingSink& operator=(const NotingSink&) = delete;
  ~NotingSink() override { ++history->destroyed; }

  void VFormat(LOG_LEVEL level, std::string& out, const char* file, int line, const char* function,
               const char* format, va_list args) override {
    std::array<char, 200> message{};
    std::vsnprintf(message.data(), message.size(), format, args);
    history->calls.push_back("VFormat(" + std::to_string(level) + ", '" + out + "', " + file +
                             ", " + std::to_string(line) + ", " + function + ", " + message.data() +
                             ")");
    out = "own layout";
  }
  void DoOutput(const char* line) override {
    history->calls.push_back(std::string("DoOutput(") + line + ")");
  }

 private:
  const std::shared_ptr<SinkHistory> history;
};

// Uses the default layout and passes each line to a function of the test.
class OutputSink : public Logger {
 public:
  explicit OutputSink(std::function<void(const char*)> target) : output(std::move(target)) {}
  void DoOutput(const char* line) override { output(line); }

 private:
  const std::function<void(const char*)> output;
};

void InstallOutput(std::function<void(const char*)> output) {
  Log::GetInstance().SetLogger(std::make_unique<OutputSink>(std::move(output)));
}

std::shared_ptr<SinkHistory> InstallNotingSink() {
  auto history = std::make_shared<SinkHistory>();
  Log::GetInstance().SetLogger(std::make_unique<NotingSink>(history));
  return history;
}

// Calls the default VFormat() on a string that is not empty.
void FormatInto(std::string& out, LOG_LEVEL level, const char* file, int line, const char* function,
                const char* format, ...) {
  Logger logger;
  va_list args;
  va_start(args, format);
  logger.VFormat(level, out, file, line, function, format, args);
  va_end(args);
}

// The two callbacks for TsLog(), with a record of their calls.
struct Callbacks {
  LOG_LEVEL level = LOG_LEVEL_ERROR;
  int asked = 0;
  std::vector<std::string> lines;
  std::vector<std::thread::id> threads;  // the calling threads, in order
};
Callbacks callbacks;

LOG_LEVEL GetLevel() {
  ++callbacks.asked;
  callbacks.threads.push_back(std::this_thread::get_id());
  return callbacks.level;
}
void Output(const char* line) {
  callbacks.lines.emplace_back(line);
  callbacks.threads.push_back(std::this_thread::get_id());
}

// Builds a line in every possible way and expects the same result.
template <typename... Args>
void ExpectLine(const std::string& expected, LOG_LEVEL level, const char* file, int line,
                const char* format, Args... args) {
  std::string text = "previous content";
  FormatInto(text, level, file, line, "ignored", format, args...);
  EXPECT_EQ(MaskTime(text), expected);

  std::string fromLog;
  InstallOutput([&fromLog](const char* output) { fromLog = output; });
  Log::GetInstance().SetLevel(kEverything);
  Log::GetInstance().DoLog(level, file, line, "ignored", format, args...);
  EXPECT_EQ(MaskTime(fromLog), expected);

  callbacks = Callbacks{};
  callbacks.level = kEverything;
  TsLog(level, &Output, &GetLevel, file, line, "ignored", format, args...);
  ASSERT_EQ(callbacks.lines.size(), 1u);
  EXPECT_EQ(MaskTime(callbacks.lines[0]), expected);
}

// ---- the log ----

TEST(FreshLog, OneInstance) { EXPECT_EQ(kFreshLog.instances, std::set<Log*>{&Log::GetInstance()}); }

TEST(FreshLog, Defaults) {
  ASSERT_EQ(kFreshLog.events.size(), 4u);
  EXPECT_EQ(MaskTime(kFreshLog.events[0]), "[<TIME>][FATAL][a.cpp:1] fresh 0\n");
  EXPECT_EQ(kFreshLog.events[1], "<flush>");
  EXPECT_EQ(MaskTime(kFreshLog.events[2]), "[<TIME>][ERROR][a.cpp:1] fresh 1\n");
  EXPECT_EQ(kFreshLog.events[3], "<flush>");
}

TEST_F(LogTest, Threshold) {
  const auto records = LogRecords::Install(LOG_LEVEL_ERROR);
  for (const int threshold : kAllLevels) {
    SCOPED_TRACE(threshold);
    Log::GetInstance().SetLevel(Level(threshold));
    for (const int level : kAllLevels) {
      SCOPED_TRACE(level);
      const size_t before = records->All().size();
      Log::GetInstance().DoLog(Level(level), "a.cpp", 1, "f", "x");
      EXPECT_EQ(records->All().size() - before, level <= threshold ? 1u : 0u);
    }
  }
}

TEST_F(LogTest, ThresholdLimits) {
  const auto records = LogRecords::Install(Level(4));
  for (const int level : {0, 1, 2, 3, 4}) {
    Log::GetInstance().DoLog(Level(level), "a.cpp", 1, "f", "x");
  }
  EXPECT_EQ(records->All().size(), 5u);
  Log::GetInstance().SetLevel(Level(-1));
  for (const int level : {0, 1, 2, 3, 4}) {
    Log::GetInstance().DoLog(Level(level), "a.cpp", 1, "f", "x");
  }
  EXPECT_EQ(records->All().size(), 5u);
}

TEST_F(LogTest, Filtered) {
  const auto history = InstallNotingSink();
  Log::GetInstance().DoLog(LOG_LEVEL_WARN, "a.cpp", 1, "f", "x");
  EXPECT_THAT(history->calls, ElementsAre());
}

// Formatting the argument would dereference it as a pointer.
TEST_F(LogTest, Arguments) {
  const char* const nowhere = reinterpret_cast<const char*>(1);
  Log::GetInstance().DoLog(LOG_LEVEL_WARN, nowhere, 1, nowhere, "%s", nowhere);
  Log::GetInstance().DoLog(LOG_LEVEL_WARN, nullptr, 1, nullptr, nullptr);
}

TEST_F(LogTest, Allocations) {
  Log& log = Log::GetInstance();
  InstallOutput([](const char*) {});
  size_t filtered = 0;
  size_t passing = 0;
  {
    const AllocationWatch watch;
    log.DoLog(LOG_LEVEL_WARN, "a.cpp", 1, "f", "a message longer than any small string %d", 1);
    filtered = watch.Count();
    log.DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "a message longer than any small string %d", 1);
    passing = watch.Count();
  }
  EXPECT_EQ(filtered, 0u);
  EXPECT_EQ(passing > 0, kAllocationsOfTheLibraryAreSeen);  // the check above needs this
}

TEST_F(LogTest, CallOrder) {
  const auto history = InstallNotingSink();
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "/b/a.cpp", 12, "ns::Class::Function", "%s %d", "x", 7);
  EXPECT_THAT(history->calls, ElementsAre("VFormat(1, '', /b/a.cpp, 12, ns::Class::Function, x 7)",
                                          "DoOutput(own layout)"));
}

TEST_F(LogTest, CallingThread) {
  std::thread::id sinkThread;
  InstallOutput([&sinkThread](const char*) { sinkThread = std::this_thread::get_id(); });
  std::thread::id callingThread;
  std::thread([&callingThread] {
    callingThread = std::this_thread::get_id();
    Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "x");
  }).join();
  EXPECT_NE(callingThread, std::thread::id());
  EXPECT_EQ(sinkThread, callingThread);
}

TEST_F(LogTest, ReplaceSink) {
  const auto first = InstallNotingSink();
  auto second = std::make_shared<SinkHistory>();
  std::unique_ptr<Logger> owner = std::make_unique<NotingSink>(second);
  EXPECT_EQ(first->destroyed, 0);
  Log::GetInstance().SetLogger(std::move(owner));
  EXPECT_EQ(owner, nullptr);
  EXPECT_EQ(first->destroyed, 1);
  EXPECT_EQ(second->destroyed, 0);

  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "x");
  EXPECT_TRUE(first->calls.empty());
  EXPECT_EQ(second->calls.size(), 2u);

  Log::GetInstance().SetLogger(std::make_unique<Logger>());
  EXPECT_EQ(first->destroyed, 1);
  EXPECT_EQ(second->destroyed, 1);
}

TEST_F(LogTest, ReplaceOrder) {
  class LogsAtTheEnd : public Logger {
   public:
    LogsAtTheEnd() = default;
    LogsAtTheEnd(const LogsAtTheEnd&) = delete;
    LogsAtTheEnd& operator=(const LogsAtTheEnd&) = delete;
    ~LogsAtTheEnd() override {
      Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "last words");
    }
  };
  Log::GetInstance().SetLogger(std::make_unique<LogsAtTheEnd>());
  const auto history = InstallNotingSink();
  EXPECT_THAT(history->calls,
              ElementsAre("VFormat(1, '', a.cpp, 1, f, last words)", "DoOutput(own layout)"));
}

TEST_F(LogTest, ReplaceSelf) {
  const auto history = InstallNotingSink();
  Log::GetInstance().SetLogger(std::move(OwnerOf(Log::GetInstance())));
  EXPECT_EQ(history->destroyed, 0);
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "x");
  EXPECT_EQ(history->calls.size(), 2u);
}

TEST_F(LogTest, NoSink) {
  const auto history = InstallNotingSink();
  Log::GetInstance().SetLogger(nullptr);
  EXPECT_EQ(history->destroyed, 1);
  {
    const CoutRecorder out;
    Log::GetInstance().DoLog(LOG_LEVEL_FATAL, "a.cpp", 1, "f", "dropped %d", 1);
    Log::GetInstance().DoLog(LOG_LEVEL_DEBUG, "a.cpp", 1, "f", "filtered %d", 1);
    EXPECT_THAT(out.Events(), ElementsAre());
  }
  const auto next = InstallNotingSink();
  Log::GetInstance().DoLog(LOG_LEVEL_FATAL, "a.cpp", 1, "f", "x");
  EXPECT_EQ(next->calls.size(), 2u);
}

// A host's sink may be a value type: copying its base part changes nothing.
TEST_F(LogTest, CopiedSink) {
  class Formatter : public Logger {
   public:
    std::string Line(const char* format, ...) {
      std::string line;
      va_list args;
      va_start(args, format);
      VFormat(LOG_LEVEL_WARN, line, "a.cpp", 7, "ignored", format, args);
      va_end(args);
      return MaskTime(line);
    }
  };
  Formatter original;
  Formatter copy(original);
  EXPECT_EQ(copy.Line("%d", 1), original.Line("%d", 1));
  copy = original;
  EXPECT_EQ(copy.Line("%d", 1), original.Line("%d", 1));
}

// The replaced sink no longer exists, so its replacement outputs the line.
TEST_F(LogTest, ReplaceInFormat) {
  class Replacing : public Logger {
   public:
    explicit Replacing(std::unique_ptr<Logger> other) : next(std::move(other)) {}
    void VFormat(LOG_LEVEL /*level*/, std::string& out, const char* /*file*/, int /*line*/,
                 const char* /*function*/, const char* /*format*/, va_list /*args*/) override {
      out = "from the first";
      const std::unique_ptr<Logger> self = std::move(OwnerOf(Log::GetInstance()));
      Log::GetInstance().SetLogger(std::move(next));
    }
    void DoOutput(const char* /*line*/) override { ADD_FAILURE() << "the sink was replaced"; }

   private:
    std::unique_ptr<Logger> next;
  };
  auto history = std::make_shared<SinkHistory>();
  Log::GetInstance().SetLogger(std::make_unique<Replacing>(std::make_unique<NotingSink>(history)));
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "x");
  EXPECT_THAT(history->calls, ElementsAre("DoOutput(from the first)"));

  Log::GetInstance().SetLogger(std::make_unique<Replacing>(nullptr));
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "dropped");
}

class ThrowingSink : public Logger {
 public:
  explicit ThrowingSink(bool whenFormatting) : inFormat(whenFormatting) {}
  void VFormat(LOG_LEVEL /*level*/, std::string& out, const char* /*file*/, int /*line*/,
               const char* /*function*/, const char* format, va_list /*args*/) override {
    out = format;
    if (inFormat && out == "throw") throw std::runtime_error("from VFormat");
  }
  void DoOutput(const char* line) override {
    lines.emplace_back(line);
    if (!inFormat && lines.back() == "throw") throw std::runtime_error("from DoOutput");
  }
  std::vector<std::string> lines;

 private:
  const bool inFormat;
};

std::string WhatIsThrownBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::exception& e) {
    return e.what();
  }
  return "nothing";
}

TEST_F(LogTest, SinkThrows) {
  for (const bool inFormat : {true, false}) {
    SCOPED_TRACE(inFormat ? "VFormat" : "DoOutput");
    auto owner = std::make_unique<ThrowingSink>(inFormat);
    ThrowingSink& sink = *owner;
    Log::GetInstance().SetLogger(std::move(owner));
    const auto log = [](const char* format) {
      Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", format);
    };
    EXPECT_EQ(WhatIsThrownBy([&log] { log("throw"); }),
              inFormat ? "from VFormat" : "from DoOutput");
    EXPECT_EQ(sink.lines.size(), inFormat ? 0u : 1u);  // no output if formatting failed
    EXPECT_EQ(WhatIsThrownBy([&log] { log("next"); }), "nothing");
    EXPECT_EQ(sink.lines.back(), "next");
  }
}

TEST_F(LogTest, MacroLocation) {
  const auto records = LogRecords::Install(LOG_LEVEL_WARN);
  const int line = __LINE__ + 1;
  TARSIO_LOG(LOG_LEVEL_WARN, "no arguments");
  TARSIO_LOG(LOG_LEVEL_ERROR, "%d and %s", 2, "two");
  TARSIO_LOG(LOG_LEVEL_INFO, "filtered");
  if (records == nullptr) TARSIO_LOG(LOG_LEVEL_ERROR, "one statement");

  const std::vector<LogRecord> all = records->All();
  ASSERT_EQ(all.size(), 2u);
  const std::string place = "[log_test.cpp:";
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(all[i].file, __FILE__);
    EXPECT_EQ(all[i].line, line + static_cast<int>(i));
    EXPECT_EQ(all[i].function, __func__);
  }
  EXPECT_EQ(all[0].level, LOG_LEVEL_WARN);
  EXPECT_EQ(all[1].level, LOG_LEVEL_ERROR);
  EXPECT_EQ(MaskTime(all[0].text),
            "[<TIME>][WARN]" + place + std::to_string(line) + "] no arguments");
  EXPECT_EQ(MaskTime(all[1].text),
            "[<TIME>][ERROR]" + place + std::to_string(line + 1) + "] 2 and two");
}

TEST_F(LogTest, MacroArguments) {
  int evaluated = 0;
  Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
  TARSIO_LOG(LOG_LEVEL_WARN, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  TARSIO_LOG(LOG_LEVEL_ERROR, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 1);
}

// ---- threads ----

constexpr int kThreads = 8;
constexpr int kLinesPerThread = 200;

// Logs numbered lines from many threads at once.
void LogFromManyThreads() {
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread, &ready] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      const std::string padding(static_cast<size_t>(20 * thread), static_cast<char>('a' + thread));
      for (int i = 0; i < kLinesPerThread; ++i) {
        Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", i, "f", "%d %s", thread,
                                 padding.c_str());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// Expects `text` to consist of these lines, unmixed, with each thread's lines in order.
void ExpectWholeLines(const std::string& text) {
  std::array<int, kThreads> next{};
  size_t begin = 0;
  while (begin < text.size()) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = MaskTime(text.substr(begin, end - begin));
    const auto isNext = [&next, &line](size_t thread) {
      return line == "[<TIME>][ERROR][a.cpp:" + std::to_string(next[thread]) + "] " +
                         std::to_string(thread) + ' ' +
                         std::string(20 * thread, static_cast<char>('a' + thread));
    };
    size_t thread = 0;
    while (thread < kThreads && !isNext(thread)) ++thread;
    ASSERT_LT(thread, size_t{kThreads}) << "no thread's next line: " << line;
    ++next[thread];
    begin = end + 1;
  }
  EXPECT_THAT(next, testing::Each(kLinesPerThread));
}

TEST_F(LoggerTest, ManyThreads) {
  std::string text;
  {
    const CoutRecorder out;
    LogFromManyThreads();
    for (const std::string& event : out.Events()) {
      if (event != "<flush>") text += event;
    }
  }
  ExpectWholeLines(text);
}

TEST_F(LoggerTest, StdoutThreads) {
  testing::internal::CaptureStdout();
  LogFromManyThreads();
  ExpectWholeLines(testing::internal::GetCapturedStdout());
}

TEST_F(LogTest, ThresholdChanges) {
  const auto records = LogRecords::Install(LOG_LEVEL_FATAL);
  std::atomic<bool> stop{false};
  std::atomic<int> passes{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&stop, &passes] {
      while (!stop) {
        Log::GetInstance().DoLog(LOG_LEVEL_FATAL, "a.cpp", 1, "f", "passes");
        Log::GetInstance().DoLog(LOG_LEVEL_WARN, "a.cpp", 2, "f", "never passes");
        ++passes;
      }
    });
  }
  while (passes < 200) {
    Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
    Log::GetInstance().SetLevel(LOG_LEVEL_FATAL);
    std::this_thread::yield();
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  const std::vector<LogRecord> all = records->All();
  EXPECT_EQ(all.size(), static_cast<size_t>(passes.load()));
  for (const LogRecord& record : all) EXPECT_EQ(record.level, LOG_LEVEL_FATAL);
}

// A point where the first caller blocks until it is released.
struct Halt {
  void Pass() {
    if (passed++ > 0) return;
    occupied.Open();
    letOn.Wait();
  }

  Gate occupied;
  Gate letOn;
  std::atomic<int> passed{0};
};

class HaltingSink : public Logger {
 public:
  HaltingSink(std::shared_ptr<Halt> place, bool whenFormatting)
      : halt(std::move(place)), inFormat(whenFormatting) {}
  void VFormat(LOG_LEVEL /*level*/, std::string& /*out*/, const char* /*file*/, int /*line*/,
               const char* /*function*/, const char* /*format*/, va_list /*args*/) override {
    if (inFormat) halt->Pass();
  }
  void DoOutput(const char* /*line*/) override {
    if (!inFormat) halt->Pass();
  }

 private:
  const std::shared_ptr<Halt> halt;
  const bool inFormat;
};

TEST_F(LogTest, BusySink) {
  for (const bool inFormat : {true, false}) {
    SCOPED_TRACE(inFormat ? "VFormat" : "DoOutput");
    const auto halt = std::make_shared<Halt>();
    Log::GetInstance().SetLogger(std::make_unique<HaltingSink>(halt, inFormat));
    const auto log = [] { Log::GetInstance().DoLog(LOG_LEVEL_FATAL, "a.cpp", 1, "f", "x"); };
    BackgroundCall busy(log);
    const bool isBusy = halt->occupied.WaitFor();
    BackgroundCall other(log);
    const bool othersLog = other.ReturnsWithin();
    BackgroundCall threshold([] { Log::GetInstance().SetLevel(LOG_LEVEL_FATAL); });
    const bool thresholdChanges = threshold.ReturnsWithin();
    halt->letOn.Open();
    EXPECT_TRUE(busy.ReturnsWithin() && other.ReturnsWithin() && threshold.ReturnsWithin());
    ASSERT_TRUE(isBusy);
    ASSERT_TRUE(othersLog);
    ASSERT_TRUE(thresholdChanges);
    EXPECT_EQ(halt->passed, 2);
  }
}

TEST_F(LogTest, SinkLogs) {
  const auto events = std::make_shared<std::vector<std::string>>();
  InstallOutput([events](const char* line) {
    const bool isOuter = events->empty();
    events->push_back(MaskTime(line));
    if (!isOuter) return;
    Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 2, "f", "from the sink");
    events->emplace_back("outer ends");
  });
  BackgroundCall call(
      [] { Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "from the caller"); });
  ASSERT_TRUE(call.ReturnsWithin());
  EXPECT_THAT(*events, ElementsAre("[<TIME>][ERROR][a.cpp:1] from the caller",
                                   "[<TIME>][ERROR][a.cpp:2] from the sink", "outer ends"));
}

// ---- process exit ----

class SinkWithLastWords : public Logger {
 public:
  SinkWithLastWords() = default;
  SinkWithLastWords(const SinkWithLastWords&) = delete;
  SinkWithLastWords& operator=(const SinkWithLastWords&) = delete;
  ~SinkWithLastWords() override { std::fputs("sink deleted\n", stderr); }
  void DoOutput(const char* line) override { std::fputs((MaskTime(line) + '\n').c_str(), stderr); }
};

struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() {
    Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "still logging");
  }
};

void EndTheProcess() {
  Log::GetInstance().SetLogger(std::make_unique<SinkWithLastWords>());
  static const LogsWhenDestroyed builtAfterTheLog;
  std::exit(0);
}

TEST_F(LogTest, Exit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(EndTheProcess(), testing::ExitedWithCode(0), "still logging.*\n.*sink deleted");
}

// ---- the default sink ----

TEST_F(LoggerTest, OneInsertion) {
  std::vector<std::string> events;
  {
    const CoutRecorder out;
    Logger logger;
    logger.DoOutput("a line");
    logger.DoOutput("");
    logger.DoOutput("100%s");
    events = out.Events();
  }
  EXPECT_THAT(events, ElementsAre("a line\n", "<flush>", "\n", "<flush>", "100%s\n", "<flush>"));
}

TEST_F(LoggerTest, NullLine) {
  const CoutRecorder out;
  Logger().DoOutput(nullptr);
  EXPECT_THAT(out.Events(), ElementsAre("\n", "<flush>"));
}

TEST_F(LoggerTest, Width) {
  const auto output = [](std::ios_base& (*adjust)(std::ios_base&)) {
    const CoutRecorder out;
    std::cout << adjust << std::setfill('*') << std::setw(6);
    Logger().DoOutput("line");
    Logger().DoOutput("next");
    std::cout << std::right << std::setfill(' ');
    return out.Events();
  };
  EXPECT_THAT(output(std::left), ElementsAre("line**\n", "<flush>", "next\n", "<flush>"));
  EXPECT_THAT(output(std::right), ElementsAre("**line\n", "<flush>", "next\n", "<flush>"));
}

TEST_F(LoggerTest, Stdout) {
  testing::internal::CaptureStdout();
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "/src/a.cpp", 3, "f", "%s", "hello");
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_EQ(MaskTime(output), "[<TIME>][ERROR][a.cpp:3] hello\n");
}

// The lines are lost, without further effect.
TEST_F(LoggerTest, ClosedStdout) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        tarsio_test::CloseStandardOutput();
        for (int i = 0; i < 100; ++i) {
          Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "lost %d", i);
        }
        const auto records = LogRecords::Install(LOG_LEVEL_ERROR);
        Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "kept");
        std::exit(records->All().size() == 1 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(LoggerTest, FormatReplaces) {
  std::string out(5000, 'x');
  FormatInto(out, LOG_LEVEL_ERROR, "a.cpp", 1, "f", "new");
  EXPECT_EQ(MaskTime(out), "[<TIME>][ERROR][a.cpp:1] new");
}

TEST_F(LoggerTest, NoFunction) {
  for (const char* function : {"a::Function", "", static_cast<const char*>(nullptr)}) {
    std::string out;
    FormatInto(out, LOG_LEVEL_ERROR, "a.cpp", 1, function, "text");
    EXPECT_EQ(MaskTime(out), "[<TIME>][ERROR][a.cpp:1] text");
  }
}

// Fails the first allocation, then the second and so on, until no allocation is left to fail.
TEST_F(LoggerTest, OutOfMemory) {
  const std::string message(300, 'm');
  std::string written;
  written.reserve(2 * message.size());  // so that the sink itself allocates nothing
  InstallOutput([&written](const char* line) { written = line; });
  std::string out = "unchanged";
  int failures = 0;
  for (size_t allowed = 0; written.empty(); ++allowed) {
    ASSERT_LT(allowed, 1000u);
    try {
      const AllocationWatch watch(allowed);
      FormatInto(out, LOG_LEVEL_ERROR, "/a/b/c.cpp", 1, "f", "%s", message.c_str());
      Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "/a/b/c.cpp", 1, "f", "%s", message.c_str());
    } catch (const std::bad_alloc&) {
      ++failures;
      EXPECT_EQ(written, "");
      EXPECT_TRUE(out == "unchanged" || out.size() > message.size());
    }
  }
  EXPECT_EQ(MaskTime(written), "[<TIME>][ERROR][c.cpp:1] " + message);
  EXPECT_EQ(failures > 0, kAllocationsOfTheLibraryAreSeen);
}

// ---- the line ----

TEST_F(LogLine, Layout) {
  ExpectLine("[<TIME>][ERROR][worker_main:145] Convert error: 2", LOG_LEVEL_ERROR,
             "/home/build/src/worker_main", 145, "Convert error: %d", 2);
  ExpectLine("[<TIME>][FATAL][thread_pool.cpp:196] task exception: boom", LOG_LEVEL_FATAL,
             "src/thread_pool.cpp", 196, "task exception: %s", "boom");
  ExpectLine("[<TIME>][WARN][blocking_queue.h:86] queue full or timeout", LOG_LEVEL_WARN,
             "include/common/blocking_queue.h", 86, "queue full or timeout");
  ExpectLine("[<TIME>][INFO][charset_cvt.cpp:1] Parameter is empty!", LOG_LEVEL_INFO,
             R"(C:\src\charset_cvt.cpp)", 1, "Parameter is empty!");
  ExpectLine("[<TIME>][DEBUG][a.cpp:7] x", LOG_LEVEL_DEBUG, "a.cpp", 7, "x");
}

TEST_F(LogLine, UnknownLevel) {
  for (const int level : {INT_MIN, -2, -1, 5, 6, 7, 100, INT_MAX}) {
    SCOPED_TRACE(level);
    ExpectLine("[<TIME>][][a.cpp:1] x", Level(level), "a.cpp", 1, "x");
  }
}

TEST_F(LogLine, FileName) {
  const struct {
    const char* name;
    const char* file;
    const char* printed;
  } rows[] = {
      {"no separator", "main.cpp", "main.cpp"},
      {"no extension", "worker_main", "worker_main"},
      {"slashes", "/usr/src/a/main.cpp", "main.cpp"},
      {"backslashes", R"(C:\src\a\main.cpp)", "main.cpp"},
      {"backslash last", R"(/src/a\main.cpp)", "main.cpp"},
      {"slash last", R"(C:\src\a/main.cpp)", "main.cpp"},
      {"long-path prefix", R"(\\?\C:\src\main.cpp)", "main.cpp"},
      {"share", R"(\\server\share\main.cpp)", "main.cpp"},
      {"relative", "../src/./main.cpp", "main.cpp"},
      {"trailing separator", "src/main/", "main"},
      {"one letter and a separator", "m/", "m"},
      {"long-path prefix alone", R"(\\?\)", ""},
      {"long-path prefix of shares alone", R"(\\?\UNC\)", ""},
      {"like part of a prefix", "src/?", "?"},
      {"like another part of it", "src/UNC", "UNC"},
      {"drive alone", R"(C:\)", "C:"},
      {"several dots", "src/a.b.cpp", "a.b.cpp"},
      {"dots alone", "src/..", ".."},
      {"UTF-8", "src/\xC3\xA9\xE2\x82\xAC.cpp", "\xC3\xA9\xE2\x82\xAC.cpp"},
      {"conversion", "src/%s%n.cpp", "%s%n.cpp"},
      {"separators alone", "//", ""},
      {"empty", "", ""},
      {"null", nullptr, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    ExpectLine(std::string("[<TIME>][ERROR][") + row.printed + ":1] x", LOG_LEVEL_ERROR, row.file,
               1, "x");
  }
}

// The file name is not cached, not even for the same pointer.
TEST_F(LogLine, FileNotCached) {
  char file[] = "/src/one.cpp";
  ExpectLine("[<TIME>][ERROR][one.cpp:1] x", LOG_LEVEL_ERROR, file, 1, "x");
  std::copy_n("two", 3, file + 5);
  ExpectLine("[<TIME>][ERROR][two.cpp:1] x", LOG_LEVEL_ERROR, file, 1, "x");
}

TEST_F(LogLine, LineNumbers) {
  for (const int line : {0, 1, -1, 1234567, INT_MAX, INT_MIN}) {
    SCOPED_TRACE(line);
    ExpectLine("[<TIME>][ERROR][a.cpp:" + std::to_string(line) + "] x", LOG_LEVEL_ERROR, "a.cpp",
               line, "x");
  }
}

TEST_F(LogLine, MessageLimit) {
  for (const size_t length : {0U, 1U, 2000U, 2046U, 2047U, 2048U, 2049U, 4096U, 100000U}) {
    SCOPED_TRACE(length);
    const std::string message(length, 'm');
    const std::string expected = "[<TIME>][ERROR][a.cpp:1] " + (length <= 2047 ? message : "");
    ExpectLine(expected, LOG_LEVEL_ERROR, "a.cpp", 1, "%s", message.c_str());
    ExpectLine(expected, LOG_LEVEL_ERROR, "a.cpp", 1, message.c_str());
  }
}

TEST_F(LogLine, LimitIsInBytes) {
  std::string message;
  for (int i = 0; i < 1023; ++i) message += "\xC3\xA9";
  ExpectLine("[<TIME>][ERROR][a.cpp:1] " + message + "x", LOG_LEVEL_ERROR, "a.cpp", 1, "%sx",
             message.c_str());
  ExpectLine("[<TIME>][ERROR][a.cpp:1] ", LOG_LEVEL_ERROR, "a.cpp", 1, "%sxx", message.c_str());
}

TEST_F(LogLine, LongFileName) {
  const std::string name(3000, 'n');
  const std::string message(2047, 'm');
  ExpectLine("[<TIME>][ERROR][" + name + ":1] " + message, LOG_LEVEL_ERROR,
             ("/src/" + name).c_str(), 1, "%s", message.c_str());
}

// Expects the message of `format` and `args`, for every way to build a line.
template <typename... Args>
void ExpectMessage(const std::string& message, const char* format, Args... args) {
  SCOPED_TRACE(format);
  ExpectLine("[<TIME>][ERROR][a.cpp:1] " + message, LOG_LEVEL_ERROR, "a.cpp", 1, format, args...);
}

TEST_F(LogLine, FailedFormat) {
  // The classic locale's encoding cannot represent this character.
  const wchar_t broken[] = {static_cast<wchar_t>(0x4E2D), L'\0'};
  const wchar_t* const text = broken;
  ExpectMessage("", "before %ls after", text);
  ExpectMessage("", "before %10.3S after", text);
  ExpectMessage("", "before %lc after", static_cast<std::wint_t>(0x4E2D));
  ExpectMessage("before  after", "before %.0ls after", text);  // nothing to encode
  for (const char* const format : {"100%", "%", "%d%", "100% ", "%-5", "%.", "%ll", "%*"}) {
    ExpectMessage("", format, 7);
  }
}

TEST_F(LogLine, StoreAndPosition) {
  int stored = -1;
  ExpectMessage("", "before%n", &stored);
  ExpectMessage("", "%10n", &stored);
  EXPECT_EQ(stored, -1);
  ExpectMessage("", "%1$d", 1);
  ExpectMessage("", "%2$s", 1, "two");
  ExpectMessage("", "%1$*2$d", 1, 2);
}

TEST_F(LogLine, HugeWidth) {
  constexpr int kHuge = 3000000;
  for (const char* const format :
       {"%3000000d", "%-3000000d|", "%.3000000d", "%2147483647x", "%99999999999999999999d",
        "%.99999999999999999999o", "%2048c", "a%2047c", "%02048d"}) {
    ExpectMessage("", format, 1);
  }
  ExpectMessage("", "%2147483647s%2147483647sabcd", "a", "b");
  ExpectMessage("", "%.3000000f", 1.0);
  ExpectMessage("", "%#.3000000g", 1.0);
  ExpectMessage("", "%.*Le", INT_MAX, 1.0L);
  for (const int width : {kHuge, -kHuge, 2048, -2048, INT_MAX, INT_MIN}) {
    ExpectMessage("", "%*d", width, 1);
    ExpectMessage("", "%*x", width, 1U);
    ExpectMessage("", "%*p", width, static_cast<void*>(nullptr));
    ExpectMessage("", "%*ls", width, L"wide");
    ExpectMessage("", "%*lc", width, static_cast<std::wint_t>('w'));
  }
  ExpectMessage("", "%.*d", kHuge, 1);
  ExpectMessage("", "%*.*f", 1, kHuge, 1.0);
}

TEST_F(LogLine, HugePrecision) {
  ExpectMessage("short", "%.3000000s", "short");
  ExpectMessage("short", "%.*s", INT_MAX, "short");
  ExpectMessage("wide", "%.2147483647ls", L"wide");
  ExpectMessage("1.5 inf -INF", "%.3000000g %.3000000f %.*F", 1.5, HUGE_VAL, INT_MAX, -HUGE_VAL);
  ExpectMessage("0.1000000000000000055511151231257827021181583404541015625", "%.*g", INT_MAX, 0.1);
}

TEST_F(LogLine, WidthLimit) {
  for (const int width : {2046, 2047}) {
    const std::string spaces(static_cast<size_t>(width) - 1, ' ');
    ExpectMessage(spaces + '1', "%*d", width, 1);
    ExpectMessage('1' + spaces, "%*d", -width, 1);
    ExpectMessage(spaces + 'w', "%*ls", width, L"w");
    ExpectMessage('w' + spaces, "%-*lc", width, static_cast<std::wint_t>('w'));
    ExpectMessage(std::string(static_cast<size_t>(width), '0'), "%.*d", width, 0);
  }
}

// Formats each conversion with the numbers in the format and as arguments, which are two code
// paths. The reference is the C library's result for the first form.
template <typename Value>
void ExpectSameWithStars(const std::string& length, const std::string& types, Value value) {
  for (const char type : types) {
    for (const char* const flags : {"", "-", "+", " ", "#", "0", "-+", "0#", "+ 0", "'"}) {
      for (const int width : {0, 1, 12, 300}) {
        for (const int precision : {-1, 0, 1, 5, 250}) {
          const std::string end = length + type;
          const std::string given = "a%" + std::string(flags) +
                                    (width > 0 ? std::to_string(width) : "") +
                                    (precision >= 0 ? '.' + std::to_string(precision) : "") + end;
          // Unsigned values have no sign, though one C library prints a space for it.
          std::string plain = given;
          if (std::string("ouxX").find(type) != std::string::npos) {
            plain.erase(std::remove_if(plain.begin(), plain.end(),
                                       [](char c) { return c == '+' || c == ' '; }),
                        plain.end());
          }
          std::array<char, 2048> expected{};
          ASSERT_GE(std::snprintf(expected.data(), expected.size(), plain.c_str(), value), 0);
          ASSERT_NO_FATAL_FAILURE(ExpectMessage(expected.data(), given.c_str(), value));
          const std::string stars = "a%" + std::string(flags) + "*.*" + end;
          ExpectMessage(expected.data(), stars.c_str(), width, precision, value);
        }
      }
    }
  }
}

TEST_F(LogLine, Stars) {
  ExpectSameWithStars("", "dioxXuc", -77);
  ExpectSameWithStars("hh", "dioxXu", 0x12FF);
  ExpectSameWithStars("h", "diu", 0x1FFFF);
  ExpectSameWithStars("l", "diux", -77L);
  ExpectSameWithStars("ll", "diuxo", -7777777777777777LL);
  ExpectSameWithStars("j", "du", std::intmax_t{-1});
  ExpectSameWithStars("z", "ux", ~std::size_t{0});
  ExpectSameWithStars("t", "di", std::ptrdiff_t{-5});
  ExpectSameWithStars("", "aAeEfFgG", -1234.5678);
  ExpectSameWithStars("L", "aefg", 1e300L);
  ExpectSameWithStars("", "s", "some text");
  ExpectSameWithStars("l", "s", L"some text");
  // Precision is undefined for pointers.
  void* const pointer = &callbacks;
  std::array<char, 100> expected{};
  std::snprintf(expected.data(), expected.size(), "a%30p", pointer);
  ExpectMessage(expected.data(), "a%*p", 30, pointer);
}

TEST_F(LogLine, UnknownType) {
  int stored = -1;
  // Some of these store through their argument, in one C library or the other.
  for (const char* const format :
       {"%In", "%qn", "%Zn", "%-I-n", "%.5.n", "%.-5n", "%5-n", "%hln"}) {
    ExpectMessage("", format, &stored);
  }
  EXPECT_EQ(stored, -1);
  // The next conversion would consume the argument of the unknown one.
  for (const char* const format : {"%b %ls", "%y %ls", "%L5d %ls", "%Ld %ls", "%lp %ls"}) {
    ExpectMessage("", format, 5, L"x");
  }
}

TEST_F(LogLine, LengthModifiers) {
  ExpectMessage("5 x", "%Iu %ls", std::size_t{5}, L"x");
  ExpectMessage("5 x", "%Zu %ls", std::size_t{5}, L"x");
  ExpectMessage("-5 x", "%qd %ls", -5LL, L"x");
  ExpectMessage("-5 s 1", "%Id %s %*d", std::ptrdiff_t{-5}, "s", 1, 1);
  ExpectMessage("5000000000 7", "%I64d %I32d", 5000000000LL, 7);
}

// The C libraries differ here.
TEST_F(LogLine, UnsignedSign) { ExpectMessage("7|  7|7", "% u|%+3lu|% zu", 7U, 7UL, size_t{7}); }
TEST_F(LogLine, OctalZero) { ExpectMessage("0|0|", "%#.0o|%#.0llo|%.0o", 0U, 0ULL, 0U); }
TEST_F(LogLine, NullString) {
  const char* const null = nullptr;
  ExpectMessage("|(null)|(null)|  |", "%.3s|%.6s|%s|%2.0s|", null, null, null, null);
}

TEST_F(LogLine, PercentSign) { ExpectMessage("%|7%", "%5%|%*d%-%", 1, 7); }

TEST_F(LogLine, Verbatim) {
  ExpectLine("[<TIME>][ERROR][a.cpp:1] no conversions", LOG_LEVEL_ERROR, "a.cpp", 1,
             "no conversions");
  ExpectLine("[<TIME>][ERROR][a.cpp:1]  blanks ", LOG_LEVEL_ERROR, "a.cpp", 1, " blanks ");
  ExpectLine("[<TIME>][ERROR][a.cpp:1] two\nlines\r\n\t", LOG_LEVEL_ERROR, "a.cpp", 1,
             "two\nlines\r\n\t");
  ExpectLine("[<TIME>][ERROR][a.cpp:1] 100% %s", LOG_LEVEL_ERROR, "a.cpp", 1, "100%% %s", "%s");
  ExpectLine("[<TIME>][ERROR][a.cpp:1] \xFF\xC3", LOG_LEVEL_ERROR, "a.cpp", 1, "\xFF\xC3");
  ExpectLine("[<TIME>][ERROR][a.cpp:1] -1 4000000000 x 0xff 2.50", LOG_LEVEL_ERROR, "a.cpp", 1,
             "%d %u %c %#x %.2f", -1, 4000000000U, 'x', 255, 2.5);
  ExpectLine("[<TIME>][ERROR][a.cpp:1] 9223372036854775807", LOG_LEVEL_ERROR, "a.cpp", 1, "%lld",
             9223372036854775807LL);
  ExpectLine("[<TIME>][ERROR][a.cpp:1] ", LOG_LEVEL_ERROR, "a.cpp", 1, "%s", "");
}

TEST_F(LogLine, MessageEndsAtNul) {
  ExpectMessage("before", "before%cafter", 0);
  ExpectMessage("before", "before%lcafter", static_cast<std::wint_t>(0));
  ExpectMessage("   before", "%*s%cafter", 9, "before", 0);
}

TEST_F(LogLine, NullFormat) {
  ExpectLine("[<TIME>][ERROR][a.cpp:1] ", LOG_LEVEL_ERROR, "a.cpp", 1, nullptr);
}

class GroupsDigits : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\1"; }
};

class ScopedGlobalLocale {
 public:
  explicit ScopedGlobalLocale(const std::locale& locale) : before(std::locale::global(locale)) {}
  ScopedGlobalLocale(const ScopedGlobalLocale&) = delete;
  ScopedGlobalLocale& operator=(const ScopedGlobalLocale&) = delete;
  ~ScopedGlobalLocale() { std::locale::global(before); }

 private:
  const std::locale before;
};

TEST_F(LogLine, NoGrouping) {
  const ScopedGlobalLocale grouping(std::locale(std::locale::classic(), new GroupsDigits));
  std::ostringstream control;
  control << 1234567;
  ASSERT_EQ(control.str(), "1.2.3.4.5.6.7");
  // In 99 of 100 lines the milliseconds have more than one digit.
  for (int i = 0; i < 5; ++i) {
    ExpectLine("[<TIME>][ERROR][a.cpp:1234567] 7654321", LOG_LEVEL_ERROR, "a.cpp", 1234567, "%d",
               7654321);
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
}

// ---- the time in the line ----

using Clock = std::chrono::system_clock;

int64_t MillisecondsOf(Clock::time_point time) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

std::string Digits(int value, size_t width) {
  const std::string digits = std::to_string(value);
  return std::string(width - std::min(width, digits.size()), '0') + digits;
}

// Returns "2024-03-05 14:07:09.38" for a calendar time; milliseconds are not padded.
std::string TimeText(const std::tm& calendar, int64_t milliseconds) {
  return Digits(calendar.tm_year + 1900, 4) + '-' + Digits(calendar.tm_mon + 1, 2) + '-' +
         Digits(calendar.tm_mday, 2) + ' ' + Digits(calendar.tm_hour, 2) + ':' +
         Digits(calendar.tm_min, 2) + ':' + Digits(calendar.tm_sec, 2) + '.' +
         std::to_string(milliseconds % 1000);
}

struct TimedLine {
  std::string time;  // without its brackets
  int64_t notBefore;
  int64_t notAfter;
};

TimedLine LineNow() {
  // The library may read a finer clock than std::chrono's, which may advance in steps of 16 ms.
  constexpr int64_t kCoarseStep = 20;
  std::string line;
  const int64_t before = MillisecondsOf(Clock::now());
  FormatInto(line, LOG_LEVEL_ERROR, "a.cpp", 1, "f", "x");
  const int64_t after = MillisecondsOf(Clock::now());
  return {line.substr(1, line.find(']') - 1), before, after + kCoarseStep};
}

// Expects the line's time to be between its two readings, converted by `toCalendar`.
void ExpectTimeInBracket(const TimedLine& line,
                         const std::function<std::tm(std::time_t)>& toCalendar) {
  for (int64_t time = line.notBefore; time <= line.notAfter; ++time) {
    if (line.time == TimeText(toCalendar(static_cast<std::time_t>(time / 1000)), time)) return;
  }
  ADD_FAILURE() << line.time << " is not within "
                << TimeText(toCalendar(static_cast<std::time_t>(line.notBefore / 1000)),
                            line.notBefore)
                << " and "
                << TimeText(toCalendar(static_cast<std::time_t>(line.notAfter / 1000)),
                            line.notAfter);
}

std::tm LocalCalendar(std::time_t seconds) { return *std::localtime(&seconds); }

// Returns a line whose milliseconds have `digits` digits. Logs it `offset` after a full second, and
// retries on a slow machine.
TimedLine LineWithDigits(size_t digits, std::chrono::milliseconds offset) {
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  TimedLine line;
  do {
    const auto now = Clock::now().time_since_epoch();
    auto next = std::chrono::duration_cast<std::chrono::seconds>(now) + offset;
    if (next < now) next += std::chrono::seconds(1);
    std::this_thread::sleep_until(Clock::time_point(next));
    line = LineNow();
  } while (line.time.size() - line.time.find('.') - 1 != digits &&
           std::chrono::steady_clock::now() < giveUp);
  return line;
}

TEST_F(LogLine, Milliseconds) {
  const struct {
    size_t digits;
    int offset;
  } rows[] = {{1, 5}, {2, 45}, {3, 120}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.offset);
    const TimedLine line = LineWithDigits(row.digits, std::chrono::milliseconds(row.offset));
    EXPECT_EQ(line.time.size() - line.time.find('.') - 1, row.digits) << line.time;
    ExpectTimeInBracket(line, &LocalCalendar);
  }
}

TEST_F(LogLine, LocalTime) {
  const struct {
    const char* zone;
    int hoursAheadOfUtc;
  } rows[] = {{"JST-9", 9}, {"UTC0", 0}, {"EST5", -5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.zone);
    const ScopedTimeZone zone(row.zone);
    ExpectTimeInBracket(LineNow(), [&row](std::time_t seconds) {
      seconds += row.hoursAheadOfUtc * 3600;
      return *std::gmtime(&seconds);
    });
  }
}

TEST_F(TsLogTest, Time) {
  callbacks = Callbacks{};
  const int64_t before = MillisecondsOf(Clock::now());
  TsLog(LOG_LEVEL_FATAL, &Output, &GetLevel, "a.cpp", 1, "f", "x");
  const int64_t after = MillisecondsOf(Clock::now()) + 20;
  ASSERT_EQ(callbacks.lines.size(), 1u);
  const std::string& line = callbacks.lines[0];
  ExpectTimeInBracket({line.substr(1, line.find(']') - 1), before, after}, &LocalCalendar);
}

// ---- the callback form ----

TEST_F(TsLogTest, NullCallbacks) {
  callbacks = Callbacks{};
  TsLog(LOG_LEVEL_FATAL, &Output, nullptr, "a.cpp", 1, "f", "x");
  TsLog(LOG_LEVEL_FATAL, nullptr, &GetLevel, "a.cpp", 1, "f", "x");
  TsLog(LOG_LEVEL_FATAL, nullptr, nullptr, "a.cpp", 1, "f", "x");
  EXPECT_EQ(callbacks.asked, 0);
  EXPECT_TRUE(callbacks.lines.empty());
}

TEST_F(TsLogTest, Threshold) {
  for (const int threshold : kAllLevels) {
    for (const int level : kAllLevels) {
      SCOPED_TRACE(std::to_string(level) + " against " + std::to_string(threshold));
      callbacks = Callbacks{};
      callbacks.level = Level(threshold);
      TsLog(Level(level), &Output, &GetLevel, "a.cpp", 1, "f", "x");
      EXPECT_EQ(callbacks.asked, 1);  // for filtered messages, too
      EXPECT_EQ(callbacks.lines.size(), level <= threshold ? 1u : 0u);
    }
  }
}

TEST_F(TsLogTest, ThresholdTwo) {
  callbacks = Callbacks{};
  callbacks.level = LOG_LEVEL_WARN;
  for (const int level : {0, 1, 2, 3, 4}) {
    TsLog(Level(level), &Output, &GetLevel, "/src/a.cpp", 1, "f", "level %d", level);
  }
  std::vector<std::string> lines;
  for (const std::string& line : callbacks.lines) lines.push_back(MaskTime(line));
  EXPECT_THAT(lines,
              ElementsAre("[<TIME>][FATAL][a.cpp:1] level 0", "[<TIME>][ERROR][a.cpp:1] level 1",
                          "[<TIME>][WARN][a.cpp:1] level 2"));  // no newlines
}

TEST_F(TsLogTest, Arguments) {
  callbacks = Callbacks{};
  const char* const nowhere = reinterpret_cast<const char*>(1);
  TsLog(LOG_LEVEL_DEBUG, &Output, &GetLevel, nowhere, 1, nowhere, "%s", nowhere);
  TsLog(LOG_LEVEL_DEBUG, &Output, &GetLevel, nullptr, 1, nullptr, nullptr);
  EXPECT_TRUE(callbacks.lines.empty());
}

TEST_F(TsLogTest, Separate) {
  const auto history = InstallNotingSink();  // has a different layout
  Log::GetInstance().SetLevel(Level(-1));
  callbacks = Callbacks{};
  callbacks.level = LOG_LEVEL_DEBUG;
  {
    const CoutRecorder out;
    TsLog(LOG_LEVEL_DEBUG, &Output, &GetLevel, "a.cpp", 1, "f", "x");
    EXPECT_THAT(out.Events(), ElementsAre());
  }
  ASSERT_EQ(callbacks.lines.size(), 1u);
  EXPECT_EQ(MaskTime(callbacks.lines[0]), "[<TIME>][DEBUG][a.cpp:1] x");
  EXPECT_THAT(history->calls, ElementsAre());

  Log::GetInstance().DoLog(LOG_LEVEL_FATAL, "a.cpp", 1, "f", "above the log's own threshold");
  EXPECT_THAT(history->calls, ElementsAre());
  Log::GetInstance().SetLevel(kEverything);
  TsLog(LOG_LEVEL_FATAL, &Output, &GetLevel, "a.cpp", 1, "f", "not for the sink");
  EXPECT_THAT(history->calls, ElementsAre());
  Log::GetInstance().SetLogger(nullptr);
  TsLog(LOG_LEVEL_DEBUG, &Output, &GetLevel, "a.cpp", 1, "f", "without a sink");
  EXPECT_EQ(callbacks.lines.size(), 3u);
}

TEST_F(TsLogTest, CallingThread) {
  callbacks = Callbacks{};
  std::thread::id callingThread;
  std::thread([&callingThread] {
    callingThread = std::this_thread::get_id();
    TsLog(LOG_LEVEL_FATAL, &Output, &GetLevel, "a.cpp", 1, "f", "x");
  }).join();
  EXPECT_NE(callingThread, std::thread::id());
  EXPECT_THAT(callbacks.threads, ElementsAre(callingThread, callingThread));
}

TEST_F(TsLogTest, OutputThrows) {
  callbacks = Callbacks{};
  const auto throwing = [](const char*) { throw std::runtime_error("from output"); };
  EXPECT_EQ(WhatIsThrownBy(
                [&throwing] { TsLog(LOG_LEVEL_FATAL, throwing, &GetLevel, "a.cpp", 1, "f", "x"); }),
            "from output");
  TsLog(LOG_LEVEL_FATAL, &Output, &GetLevel, "a.cpp", 1, "f", "next");
  EXPECT_EQ(callbacks.lines.size(), 1u);
}

}  // namespace
