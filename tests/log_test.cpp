#include "common/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/background_call.h"
#include "support/cout_recorder.h"
#include "support/file_obstacles.h"
#include "support/gate.h"
#include "support/private_member.h"
#include "support/recording_logger.h"
#include "support/scoped_time_zone.h"

namespace tarsio_test {

EXPOSE_PRIVATE(LogSink, &tarsio::Log::logger);

}  // namespace tarsio_test

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
using tarsio_test::BackgroundCall;
using tarsio_test::CoutRecorder;
using tarsio_test::Gate;
using tarsio_test::LogRecord;
using tarsio_test::LogRecords;
using tarsio_test::ScopedTimeZone;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

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

std::unique_ptr<Logger>& SinkOfLog() { return Log::GetInstance().*Reach(tarsio_test::LogSink()); }

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
class LogTest : public testing::Test {
 protected:
  LogTest() { Reset(); }
  ~LogTest() override { Reset(); }

 private:
  static void Reset() {
    Log::GetInstance().SetLogger(std::make_unique<Logger>());
    Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
  }
};

class LoggerTest : public LogTest {};
class LogLine : public LogTest {};

// The calls to a sink, and its destruction.
using History = std::shared_ptr<std::vector<std::string>>;

// Records each call with its arguments. Its layout differs from the default.
class NotingSink : public Logger {
 public:
  explicit NotingSink(History target) : history(std::move(target)) {}
  NotingSink(const NotingSink&) = delete;
  NotingSink& operator=(const NotingSink&) = delete;
  ~NotingSink() override { history->push_back("destroyed"); }

  void VFormat(LOG_LEVEL level, std::string& out, const char* file, int line, const char* function,
               const char* format, va_list args) override {
    std::array<char, 200> message{};
    std::vsnprintf(message.data(), message.size(), format, args);
    std::ostringstream call;
    call << level << ", '" << out << "', " << file << ", " << line << ", " << function << ", ";
    history->push_back("VFormat(" + call.str() + message.data() + ")");
    out = "own layout";
  }
  void DoOutput(const char* line) override {
    history->push_back(std::string("DoOutput(") + line + ")");
  }

 private:
  const History history;
};

// Calls functions of the test before it formats a line, and instead of printing it.
class HookedSink : public Logger {
 public:
  using Hook = std::function<void(const char*)>;

  HookedSink(Hook format, Hook output) : onFormat(std::move(format)), onOutput(std::move(output)) {}
  void VFormat(LOG_LEVEL level, std::string& out, const char* file, int line, const char* function,
               const char* format, va_list args) override {
    onFormat(format);
    Logger::VFormat(level, out, file, line, function, format, args);
  }
  void DoOutput(const char* line) override { onOutput(line); }

 private:
  const Hook onFormat;
  const Hook onOutput;
};

void InstallHooks(HookedSink::Hook format, HookedSink::Hook output) {
  Log::GetInstance().SetLogger(std::make_unique<HookedSink>(std::move(format), std::move(output)));
}

void InstallOutput(HookedSink::Hook output) {
  InstallHooks([](const char*) {}, std::move(output));
}

History InstallNotingSink() {
  auto history = std::make_shared<std::vector<std::string>>();
  Log::GetInstance().SetLogger(std::make_unique<NotingSink>(history));
  return history;
}

void LogError(const char* text) {
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "a.cpp", 1, "f", "%s", text);
}

// Calls VFormat() on a string that is not empty and returns the line, with its time masked.
std::string Format(Logger& logger, LOG_LEVEL level, const char* file, int line,
                   const char* function, const char* format, ...) {
  std::string out(5000, 'x');
  va_list args;
  va_start(args, format);
  logger.VFormat(level, out, file, line, function, format, args);
  va_end(args);
  return MaskTime(out);
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
  Logger logger;
  EXPECT_EQ(Format(logger, level, file, line, "ignored", format, args...), expected);

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

// The first callers, on many threads.
TEST(FreshLog, OneInstance) {
  std::array<Log*, 8> seen{};
  Gate go;
  std::vector<std::thread> threads;
  for (Log*& instance : seen) {
    threads.emplace_back([&go, &instance] {
      go.Wait();
      instance = &Log::GetInstance();
    });
  }
  go.Open();
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(seen, testing::Each(&Log::GetInstance()));
}

TEST(FreshLog, Defaults) {
  const CoutRecorder out;
  for (const int level : {0, 1, 2, 3, 4}) {
    Log::GetInstance().DoLog(Level(level), "a.cpp", 1, "f", "fresh %d", level);
  }
  const std::vector<std::string> events = out.Events();
  ASSERT_EQ(events.size(), 4u);
  EXPECT_EQ(MaskTime(events[0]), "[<TIME>][FATAL][a.cpp:1] fresh 0\n");
  EXPECT_EQ(events[1], "<flush>");
  EXPECT_EQ(MaskTime(events[2]), "[<TIME>][ERROR][a.cpp:1] fresh 1\n");
}

TEST_F(LogTest, Threshold) {
  const auto records = LogRecords::Install(LOG_LEVEL_ERROR);
  for (const int threshold : kAllLevels) {
    Log::GetInstance().SetLevel(Level(threshold));
    for (const int level : kAllLevels) {
      SCOPED_TRACE(std::to_string(level) + " against " + std::to_string(threshold));
      const size_t expected = level <= threshold ? 1 : 0;
      const size_t before = records->All().size();
      Log::GetInstance().DoLog(Level(level), "a.cpp", 1, "f", "x");
      EXPECT_EQ(records->All().size() - before, expected);

      callbacks = Callbacks{};
      callbacks.level = Level(threshold);
      TsLog(Level(level), &Output, &GetLevel, "a.cpp", 1, "f", "x");
      EXPECT_EQ(callbacks.asked, 1);  // for filtered messages, too
      EXPECT_EQ(callbacks.lines.size(), expected);
    }
  }
}

// Formatting the argument would dereference it as a pointer.
TEST_F(LogTest, Filtered) {
  const auto history = InstallNotingSink();
  callbacks = Callbacks{};
  const char* const nowhere = reinterpret_cast<const char*>(1);
  Log::GetInstance().DoLog(LOG_LEVEL_WARN, nowhere, 1, nowhere, "%s", nowhere);
  Log::GetInstance().DoLog(LOG_LEVEL_WARN, nullptr, 1, nullptr, nullptr);
  TsLog(LOG_LEVEL_WARN, &Output, &GetLevel, nowhere, 1, nowhere, "%s", nowhere);
  TsLog(LOG_LEVEL_WARN, &Output, &GetLevel, nullptr, 1, nullptr, nullptr);
  EXPECT_THAT(*history, IsEmpty());
  EXPECT_THAT(callbacks.lines, IsEmpty());
}

TEST_F(LogTest, CallOrder) {
  const auto history = InstallNotingSink();
  Log::GetInstance().DoLog(LOG_LEVEL_ERROR, "/b/a.cpp", 12, "ns::Class::Function", "%s %d", "x", 7);
  EXPECT_THAT(*history, ElementsAre("VFormat(1, '', /b/a.cpp, 12, ns::Class::Function, x 7)",
                                    "DoOutput(own layout)"));
}

TEST_F(LogTest, CallingThread) {
  InstallOutput(&Output);
  callbacks = Callbacks{};
  std::thread caller([] {
    LogError("x");
    TsLog(LOG_LEVEL_FATAL, &Output, &GetLevel, "a.cpp", 1, "f", "x");
  });
  const std::thread::id callingThread = caller.get_id();
  caller.join();
  EXPECT_THAT(callbacks.threads, ElementsAre(callingThread, callingThread, callingThread));
}

TEST_F(LogTest, ReplaceSink) {
  const auto first = InstallNotingSink();
  const auto second = std::make_shared<std::vector<std::string>>();
  std::unique_ptr<Logger> owner = std::make_unique<NotingSink>(second);
  EXPECT_THAT(*first, IsEmpty());
  Log::GetInstance().SetLogger(std::move(owner));
  EXPECT_EQ(owner, nullptr);
  LogError("x");
  EXPECT_THAT(*first, ElementsAre("destroyed"));
  EXPECT_THAT(*second, ElementsAre("VFormat(1, '', a.cpp, 1, f, x)", "DoOutput(own layout)"));
}

TEST_F(LogTest, ReplaceOrder) {
  struct LogsAtTheEnd : Logger {
    ~LogsAtTheEnd() override { LogError("last words"); }
  };
  Log::GetInstance().SetLogger(std::make_unique<LogsAtTheEnd>());
  const auto history = InstallNotingSink();
  EXPECT_THAT(*history,
              ElementsAre("VFormat(1, '', a.cpp, 1, f, last words)", "DoOutput(own layout)"));
}

TEST_F(LogTest, ReplaceSelf) {
  const auto history = InstallNotingSink();
  Log::GetInstance().SetLogger(std::move(SinkOfLog()));
  LogError("x");
  EXPECT_THAT(*history, ElementsAre(StartsWith("VFormat"), StartsWith("DoOutput")));
}

TEST_F(LogTest, NoSink) {
  const auto history = InstallNotingSink();
  Log::GetInstance().SetLogger(nullptr);
  EXPECT_THAT(*history, ElementsAre("destroyed"));
  {
    const CoutRecorder out;
    LogError("dropped");
    EXPECT_THAT(out.Events(), IsEmpty());
  }
  const auto next = InstallNotingSink();
  LogError("x");
  EXPECT_THAT(*next, SizeIs(2));
}

// A host's sink may be a value type: copying its base part changes nothing.
TEST_F(LogTest, CopiedSink) {
  const HookedSink sink([](const char*) {}, [](const char*) {});
  auto copy = std::make_unique<HookedSink>(sink);
  static_cast<Logger&>(*copy) = sink;
  EXPECT_EQ(Format(*copy, LOG_LEVEL_WARN, "a.cpp", 7, "ignored", "%d", 1),
            "[<TIME>][WARN][a.cpp:7] 1");
}

// The replaced sink no longer exists, so its replacement outputs the line.
TEST_F(LogTest, ReplaceInFormat) {
  std::unique_ptr<Logger> replaced;
  std::unique_ptr<Logger> next;
  const auto replace = [&](const char*) {
    replaced = std::move(SinkOfLog());
    Log::GetInstance().SetLogger(std::move(next));
  };
  const auto fail = [](const char*) { ADD_FAILURE() << "the sink was replaced"; };
  const auto history = std::make_shared<std::vector<std::string>>();
  next = std::make_unique<NotingSink>(history);
  InstallHooks(replace, fail);
  LogError("x");
  EXPECT_THAT(*history, ElementsAre(MatchesRegex("DoOutput.*ERROR.*x.")));

  InstallHooks(replace, fail);  // by no sink
  LogError("dropped");
}

TEST_F(LogTest, Exceptions) {
  struct Thrown {};
  for (const bool inFormat : {true, false}) {
    SCOPED_TRACE(inFormat ? "VFormat" : "DoOutput");
    bool throws = true;
    int lines = 0;
    InstallHooks(
        [&](const char*) {
          if (throws && inFormat) throw Thrown();
        },
        [&](const char*) {
          ++lines;
          if (throws) throw Thrown();
        });
    EXPECT_THROW(LogError("x"), Thrown);
    EXPECT_EQ(lines, inFormat ? 0 : 1);  // no output if formatting failed
    throws = false;
    LogError("next");
    EXPECT_EQ(lines, inFormat ? 1 : 2);
  }
  const auto throwing = [](const char*) { throw Thrown(); };
  EXPECT_THROW(TsLog(LOG_LEVEL_FATAL, throwing, &GetLevel, "a.cpp", 1, "f", "x"), Thrown);
}

TEST_F(LogTest, Macro) {
  const auto records = LogRecords::Install(LOG_LEVEL_WARN);
  int evaluated = 0;
  const int line = __LINE__ + 1;
  TARSIO_LOG(LOG_LEVEL_WARN, "no arguments");
  TARSIO_LOG(LOG_LEVEL_ERROR, "%d and %s", ++evaluated, "two");
  TARSIO_LOG(LOG_LEVEL_INFO, "filtered %d", ++evaluated);
  if (records == nullptr) TARSIO_LOG(LOG_LEVEL_ERROR, "one statement");

  EXPECT_EQ(evaluated, 1);
  const std::vector<LogRecord> all = records->All();
  ASSERT_THAT(all, SizeIs(2));
  const char* const ends[] = {"no arguments", "1 and two"};
  for (const int i : {0, 1}) {
    const LogRecord& record = all[static_cast<size_t>(i)];
    EXPECT_EQ(record.level, i == 0 ? LOG_LEVEL_WARN : LOG_LEVEL_ERROR);
    EXPECT_EQ(record.file, __FILE__);
    EXPECT_EQ(record.line, line + i);
    EXPECT_EQ(record.function, __func__);
    EXPECT_THAT(record.text,
                EndsWith("[log_test.cpp:" + std::to_string(line + i) + "] " + ends[i]));
  }
}

// Neither the log's threshold nor its sink is used.
TEST_F(LogTest, TsLogIsSeparate) {
  const auto history = InstallNotingSink();
  Log::GetInstance().SetLevel(Level(-1));
  callbacks = Callbacks{};
  callbacks.level = LOG_LEVEL_DEBUG;
  const CoutRecorder out;
  TsLog(LOG_LEVEL_DEBUG, &Output, &GetLevel, "a.cpp", 1, "f", "x");
  ASSERT_THAT(callbacks.lines, SizeIs(1));
  EXPECT_EQ(MaskTime(callbacks.lines[0]), "[<TIME>][DEBUG][a.cpp:1] x");
  EXPECT_THAT(*history, IsEmpty());
  Log::GetInstance().SetLogger(nullptr);
  TsLog(LOG_LEVEL_DEBUG, &Output, &GetLevel, "a.cpp", 1, "f", "without a sink");
  EXPECT_THAT(callbacks.lines, SizeIs(2));
  EXPECT_THAT(out.Events(), IsEmpty());
}

TEST_F(LogTest, NullCallbacks) {
  callbacks = Callbacks{};
  TsLog(LOG_LEVEL_FATAL, &Output, nullptr, "a.cpp", 1, "f", "x");
  TsLog(LOG_LEVEL_FATAL, nullptr, &GetLevel, "a.cpp", 1, "f", "x");
  EXPECT_EQ(callbacks.asked, 0);
  EXPECT_THAT(callbacks.lines, IsEmpty());
}

// ---- threads ----

// No lines are mixed or lost, and those of a thread are in order, while the threshold changes
// between two values that both let them pass.
TEST_F(LoggerTest, ManyThreads) {
  constexpr int kLines = 200;
  Gate go;
  std::atomic<int> running{8};
  std::vector<std::thread> threads;
  std::map<std::string, int> expected;  // the number of lines with each message
  testing::internal::CaptureStdout();
  for (const char letter : {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}) {
    const std::string message(static_cast<size_t>(1 + 20 * (letter - 'a')), letter);
    expected[message] = kLines;
    threads.emplace_back([&go, &running, message] {
      go.Wait();
      for (int i = 0; i < kLines; ++i) {
        Log::GetInstance().DoLog(LOG_LEVEL_FATAL, "a.cpp", i, "f", "%s", message.c_str());
        Log::GetInstance().DoLog(LOG_LEVEL_WARN, "a.cpp", i, "f", "never passes");
      }
      --running;
    });
  }
  go.Open();
  while (running > 0) {
    Log::GetInstance().SetLevel(LOG_LEVEL_FATAL);
    Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
    std::this_thread::yield();
  }
  for (std::thread& thread : threads) thread.join();
  std::istringstream output(testing::internal::GetCapturedStdout());
  std::map<std::string, int> counts;
  for (std::string line; std::getline(output, line);) {
    const std::string message = line.substr(line.rfind(' ') + 1);
    const std::string number = std::to_string(counts[message]++);
    EXPECT_EQ(MaskTime(line), "[<TIME>][FATAL][a.cpp:" + number + "] " + message);
  }
  EXPECT_EQ(counts, expected);
}

// A sink that blocks does not block other threads.
TEST_F(LogTest, BusySink) {
  for (const bool inFormat : {true, false}) {
    SCOPED_TRACE(inFormat ? "VFormat" : "DoOutput");
    Gate occupied;
    Gate letOn;
    std::atomic<int> passed{0};
    const auto haltFirst = [&](const char*) {
      if (passed++ > 0) return;
      occupied.Open();
      letOn.Wait();
    };
    const auto pass = [](const char*) {};
    inFormat ? InstallHooks(haltFirst, pass) : InstallHooks(pass, haltFirst);
    BackgroundCall busy([] { LogError("x"); });
    const bool isBusy = occupied.WaitFor();
    BackgroundCall other([] {
      LogError("x");
      Log::GetInstance().SetLevel(LOG_LEVEL_ERROR);
    });
    const bool othersLog = other.ReturnsWithin();
    letOn.Open();
    EXPECT_TRUE(busy.ReturnsWithin() && other.ReturnsWithin());
    EXPECT_TRUE(isBusy);
    EXPECT_TRUE(othersLog);
    EXPECT_EQ(passed, 2);
  }
}

TEST_F(LogTest, SinkLogs) {
  std::vector<std::string> events;
  InstallOutput([&events](const char* line) {
    const bool isOuter = events.empty();
    events.push_back(MaskTime(line));
    if (!isOuter) return;
    LogError("from the sink");
    events.emplace_back("outer ends");
  });
  BackgroundCall call([] { LogError("from the caller"); });
  ASSERT_TRUE(call.ReturnsWithin());
  EXPECT_THAT(events, ElementsAre("[<TIME>][ERROR][a.cpp:1] from the caller",
                                  "[<TIME>][ERROR][a.cpp:1] from the sink", "outer ends"));
}

// ---- process exit ----

struct SinkWithLastWords : Logger {
  ~SinkWithLastWords() override { std::fputs("sink deleted\n", stderr); }
  void DoOutput(const char* line) override { std::fputs((MaskTime(line) + '\n').c_str(), stderr); }
};

struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() { LogError("still logging"); }
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
  const CoutRecorder out;
  for (const char* const line : {"a line", "", "100%s", static_cast<const char*>(nullptr)}) {
    Logger().DoOutput(line);
  }
  EXPECT_THAT(out.Events(), ElementsAre("a line\n", "<flush>", "\n", "<flush>", "100%s\n",
                                        "<flush>", "\n", "<flush>"));
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

// The lines are lost, without further effect.
TEST_F(LoggerTest, ClosedStdout) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        tarsio_test::CloseStandardOutput();
        for (int i = 0; i < 100; ++i) LogError("lost");
        const auto records = LogRecords::Install(LOG_LEVEL_ERROR);
        LogError("kept");
        std::exit(records->All().size() == 1 ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// ---- the line ----

TEST_F(LogLine, Layout) {
  const char* const names[] = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG"};
  for (const int level : kAllLevels) {
    const std::string name = level >= 0 && level < 5 ? names[level] : "";
    ExpectLine("[<TIME>][" + name + "][a.cpp:7] error: 2", Level(level), "a.cpp", 7, "error: %d",
               2);
  }
  for (const int line : {0, -1, INT_MAX, INT_MIN}) {
    ExpectLine("[<TIME>][WARN][a.h:" + std::to_string(line) + "] x", LOG_LEVEL_WARN, "a.h", line,
               "x");
  }
  Logger logger;
  EXPECT_EQ(Format(logger, LOG_LEVEL_ERROR, "a.cpp", 1, nullptr, "x"),
            "[<TIME>][ERROR][a.cpp:1] x");
}

TEST_F(LogLine, FileName) {
  const struct {
    const char* file;
    const char* printed;
  } rows[] = {
      {"/usr/src/a/main.cpp", "main.cpp"},
      {R"(/src/a\main.cpp)", "main.cpp"},
      {R"(C:\src\a/main.cpp)", "main.cpp"},
      {R"(\\server\share\main.cpp)", "main.cpp"},
      {"src/main/", "main"},
      {"m/", "m"},
      {R"(\\?\)", ""},
      {R"(\\?\UNC\)", ""},
      {"src/?", "?"},
      {"src/UNC", "UNC"},
      {R"(C:\)", "C:"},
      {"src/..", ".."},
      {"src/\xC3\xA9%s%n.cpp", "\xC3\xA9%s%n.cpp"},
      {"//", ""},
      {"", ""},
      {nullptr, ""},
  };
  for (const auto& row : rows) {
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

// Expects the message of `format` and `args`, for every way to build a line.
template <typename... Args>
void ExpectMessage(const std::string& message, const char* format, Args... args) {
  SCOPED_TRACE(format);
  ExpectLine("[<TIME>][ERROR][a.cpp:1] " + message, LOG_LEVEL_ERROR, "a.cpp", 1, format, args...);
}

// In bytes; the file name does not count.
TEST_F(LogLine, MessageLimit) {
  std::string twoBytes;
  while (twoBytes.size() < 2046) twoBytes += "\xC3\xA9";
  for (const std::string& most : {std::string(2046, 'm'), twoBytes}) {
    ExpectMessage(most + "x", "%sx", most.c_str());
    ExpectMessage("", "%sxx", most.c_str());
    ExpectMessage(most + "x", (most + "x").c_str());
    ExpectMessage("", (most + "xx").c_str());
  }
  ExpectMessage("", std::string(100000, 'm').c_str());
  const std::string name(3000, 'n');
  ExpectLine("[<TIME>][ERROR][" + name + ":1] " + twoBytes, LOG_LEVEL_ERROR,
             ("/src/" + name).c_str(), 1, "%s", twoBytes.c_str());
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

// The precision limits bytes; incomplete characters are omitted.
TEST_F(LogLine, WholeCharacters) {
  const std::pair<const char*, const char*> encodings[] = {{"C.UTF-8", "\xC2\xA7"},
                                                           {".932", "\x81\x98"}};
  int tried = 0;
  for (const auto& [locale, character] : encodings) {
    if (std::setlocale(LC_CTYPE, locale) == nullptr) continue;
    ++tried;
    ExpectMessage(character, "%.3ls", L"\xA7\xA7");
    ExpectMessage("x", "x%.1ls", L"\xA7");
  }
  std::setlocale(LC_CTYPE, "C");
  EXPECT_GT(tried, 0);
}

TEST_F(LogLine, HugeWidth) {
  constexpr int kHuge = 3000000;
  for (const char* const format :
       {"%3000000d", "%-3000000d|", "%.3000000d", "%2147483647x", "%99999999999999999999d",
        "%.99999999999999999999o", "%2048c", "a%2047c", "%02048d"}) {
    ExpectMessage("", format, 1);
  }
  ExpectMessage("", "%2147483647s%2147483647sabcd", "a", "b");
  ExpectMessage("", "%#.3000000g", 1.0);
  ExpectMessage("", "%.*Le", INT_MAX, 1.0L);
  for (const int width : {kHuge, 2048, -2048, INT_MAX, INT_MIN}) {
    ExpectMessage("", "%*d", width, 1);
    ExpectMessage("", "%*p", width, static_cast<void*>(nullptr));
    ExpectMessage("", "%*ls", width, L"wide");
    ExpectMessage("", "%*lc", width, static_cast<std::wint_t>('w'));
  }
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
    ExpectMessage("", ("%*s%10" + length + type).c_str(), 2040, "too long together", value);
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
  ExpectSameWithStars("l", "f", 2.5);
  ExpectSameWithStars("L", "aefg", 1e300L);
  ExpectSameWithStars("", "s", "some text");
  ExpectSameWithStars("l", "s", L"some text");
  // Precision is undefined for pointers.
  void* const pointer = &callbacks;
  std::array<char, 100> expected{};
  std::snprintf(expected.data(), expected.size(), "a%30p", pointer);
  ExpectMessage(expected.data(), "a%*p", 30, pointer);
  ExpectMessage("", "%*s%10p", 2040, "too long together", pointer);
}

TEST_F(LogLine, UnknownType) {
  int stored = -1;
  // Some of these store through their argument, in one C library or the other.
  for (const char* const format :
       {"before%n", "%10n", "%In", "%qn", "%Zn", "%-I-n", "%.5.n", "%.-5n", "%5-n", "%hln"}) {
    ExpectMessage("", format, &stored);
  }
  EXPECT_EQ(stored, -1);
  for (const char* const format : {"%1$d", "%2$s", "%1$*2$d"}) ExpectMessage("", format, 1, 2);
  // The next conversion would consume the argument of the unknown one.
  for (const char* const format :
       {"%b %ls", "%y %ls", "%L5d %ls", "%Ld %ls", "%lp %ls", "%hf %ls", "%js %ls"}) {
    ExpectMessage("", format, 5, L"x");
  }
}

TEST_F(LogLine, LengthModifiers) {
  ExpectMessage("5 x", "%Iu %ls", std::size_t{5}, L"x");
  ExpectMessage("5 x", "%Zu %ls", std::size_t{5}, L"x");
  ExpectMessage("-5 x", "%qd %ls", -5LL, L"x");
  ExpectMessage("-5 s 1", "%Id %s %*d", std::ptrdiff_t{-5}, "s", 1, 1);
  ExpectMessage("5000000000 7", "%I64d %I32d", 5000000000LL, 7);
  ExpectMessage("s x", "%hs %ls", "s", L"x");
}

// A wide argument makes the library format each conversion by itself.
TEST_F(LogLine, EachConversion) {
  constexpr auto kWide = static_cast<std::wint_t>(L'w');
  ExpectMessage("w|w|  w|w  ", "%C|%lc|%3lc|%-3lc", kWide, kWide, kWide, kWide);
  ExpectMessage("wide|  wide|wide  |wi|(null)", "%S|%6ls|%-6ls|%.2ls|%ls", L"wide", L"wide",
                L"wide", L"wide", static_cast<const wchar_t*>(nullptr));
  ExpectMessage("-1|-2|-3|-4|-5|6|-7|w", "%hhd|%hd|%ld|%lld|%jd|%zu|%td|%lc", -1, -2, -3L, -4LL,
                std::intmax_t{-5}, std::size_t{6}, std::ptrdiff_t{-7}, kWide);
  ExpectMessage("2.5|2.5|c|s|w", "%.1f|%.1Lf|%c|%s|%lc", 2.5, 2.5L, 'c', "s", kWide);
  for (const char* const format : {"ab%2046lc", "ab%2047lc", "ab%-2046lc"}) {
    ExpectMessage("", format, kWide);
  }
  for (const size_t size : {2048U, 3000U}) {
    ExpectMessage("", "%ls", std::wstring(size, L'w').c_str());
  }
  errno = ENOENT;  // not changed before the format
  ExpectMessage(std::strerror(ENOENT) + std::string(" w"), "%m %lc", kWide);
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
  ExpectMessage(" two\nlines\r\n\t", " two\nlines\r\n\t");
  ExpectMessage("100% %s\xFF\xC3", "100%% %s\xFF\xC3", "%s");
  ExpectMessage("-1 4000000000 x 0xff 2.50", "%d %u %c %#x %.2f", -1, 4000000000U, 'x', 255, 2.5);
  ExpectMessage("9223372036854775807", "%lld%s", 9223372036854775807LL, "");
  ExpectMessage("", nullptr);
}

TEST_F(LogLine, MessageEndsAtNul) {
  ExpectMessage("before", "before%cafter", 0);
  ExpectMessage("before", "before%lcafter", static_cast<std::wint_t>(0));
  ExpectMessage("   before", "%*s%cafter", 9, "before", 0);
}

// The calendar time of a line is between two readings of the clock. The library may read a finer
// clock than std::chrono's, which may advance in steps of 16 ms.
TEST_F(LogLine, LocalTime) {
  const auto now = [] {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
  };
  const std::pair<const char*, int> hoursAheadOfUtc[] = {{"JST-9", 9}, {"UTC0", 0}, {"EST5", -5}};
  for (const auto& [name, hours] : hoursAheadOfUtc) {
    const ScopedTimeZone zone(name);
    std::string line;
    InstallOutput([&line](const char* output) { line = output; });
    const int64_t before = now();
    LogError("x");
    const int64_t after = now() + 20;
    std::set<std::string> expected;
    for (int64_t time = before; time <= after; ++time) {
      const auto seconds = static_cast<std::time_t>(time / 1000 + hours * 3600);
      std::ostringstream out;
      out << std::put_time(std::gmtime(&seconds), "[%Y-%m-%d %H:%M:%S.") << time % 1000 << ']';
      expected.insert(out.str());
    }
    EXPECT_EQ(expected.count(line.substr(0, line.find(']') + 1)), 1u) << name << ": " << line;
  }
}

}  // namespace
