#include "common/log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>

#include "common/path.h"
#include "platform/platform.h"

namespace tarsio {

namespace {

constexpr size_t kMessageBufferSize = 2048;  // the longest message and its terminator

const char* LevelName(LOG_LEVEL level) {
  switch (level) {
    case LOG_LEVEL_FATAL:
      return "FATAL";
    case LOG_LEVEL_ERROR:
      return "ERROR";
    case LOG_LEVEL_WARN:
      return "WARN";
    case LOG_LEVEL_INFO:
      return "INFO";
    case LOG_LEVEL_DEBUG:
      return "DEBUG";
  }
  return "";
}

void AppendTwoDigits(std::string& out, int value) {
  out += static_cast<char>('0' + value / 10);
  out += static_cast<char>('0' + value % 10);
}

// "2024-03-05 14:07:09.38": the milliseconds without leading zeros, deliberately.
void AppendLocalTime(std::string& out) {
  const int64_t ticks = platform::WallClockTicks();
  std::tm local{};
  if (platform::LocalTime(ticks / 10000000, &local)) {
    out += std::to_string(local.tm_year + 1900);
    AppendTwoDigits(out += '-', local.tm_mon + 1);
    AppendTwoDigits(out += '-', local.tm_mday);
    AppendTwoDigits(out += ' ', local.tm_hour);
    AppendTwoDigits(out += ':', local.tm_min);
    AppendTwoDigits(out += ':', local.tm_sec);
  }
  (out += '.') += std::to_string(ticks / 10000 % 1000);
}

// The last component of `file`, as Path has it.
void AppendFilename(std::string& out, std::string_view file) {
  const auto isSeparator = [](char c) { return c == '/' || c == '\\'; };
  const auto last = std::find_if_not(file.rbegin(), file.rend(), isSeparator);
  const auto first = std::find_if(last, file.rend(), isSeparator);
  const std::string_view name =
      file.substr(static_cast<size_t>(file.rend() - first), static_cast<size_t>(first - last));
  // What may belong to a prefix is left to the one who knows.
  const bool maybePrefix = name == "?" || name == "UNC";
  if (maybePrefix) {
    out += Path(std::string(file)).Filename();
  } else {
    out += name;
  }
}

// Appends the message, or nothing for one that is too long (never cut) or cannot be formatted.
void AppendMessage(std::string& out, const char* format, va_list args) {
  if (format == nullptr) return;
  // NOLINTNEXTLINE(*-member-init): clearing it costs as much as formatting a short message
  std::array<char, kMessageBufferSize> buffer;
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started by whoever calls
  const int length = std::vsnprintf(buffer.data(), buffer.size(), format, args);
  if (length < 0 || static_cast<size_t>(length) >= buffer.size()) return;
  out += buffer.data();
}

void BuildLine(LOG_LEVEL level, std::string& out, const char* file, int line, const char* format,
               va_list args) {
  std::string text;
  text.reserve(200);  // more than most lines have
  AppendLocalTime(text += '[');
  (text += "][") += LevelName(level);
  AppendFilename(text += "][", file != nullptr ? file : "");
  (text += ':') += std::to_string(line);
  AppendMessage(text += "] ", format, args);
  out = std::move(text);
}

// Ends the use of a variable argument list on every way out.
class EndArguments {
 public:
  explicit EndArguments(va_list& started) : args(started) {}
  EndArguments(const EndArguments&) = delete;
  EndArguments& operator=(const EndArguments&) = delete;
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): started by whoever makes the object
  ~EndArguments() { va_end(args); }

 private:
  va_list& args;
};

// Out of line, so that a message above the threshold does not pay for this frame.
[[gnu::noinline]] void Deliver(Logger& logger, LOG_LEVEL level, const char* file, int line,
                               const char* function, const char* format, va_list args) {
  std::string text;
  logger.VFormat(level, text, file, line, function, format, args);
  logger.DoOutput(text.c_str());
}

}  // namespace

Logger::Logger() = default;
Logger::Logger(const Logger& other) = default;
Logger& Logger::operator=(const Logger& other) = default;
Logger::~Logger() = default;

void Logger::VFormat(LOG_LEVEL level, std::string& out, const char* file, int line,
                     const char* /*function*/, const char* format, va_list args) {
  BuildLine(level, out, file, line, format, args);
}

void Logger::DoOutput(const char* line) {
  const std::string_view message = line;
  // The newline comes in the same insertion, or lines of several threads would mix.
  std::string text(message.size() + 1, '\n');
  message.copy(text.data(), message.size());
  std::cout << text << std::flush;
}

Log::Log() : logger(new Logger), level(LOG_LEVEL_ERROR) {}
Log::~Log() = default;

Log& Log::GetInstance() {
  static Log instance;
  return instance;
}

void Log::SetLevel(LOG_LEVEL newLevel) { level.store(newLevel, std::memory_order_relaxed); }

void Log::SetLogger(std::unique_ptr<Logger>&& newLogger) { logger = std::move(newLogger); }

void Log::DoLog(LOG_LEVEL messageLevel, const char* file, int line, const char* function,
                const char* format, ...) {
  if (messageLevel > level.load(std::memory_order_relaxed)) return;
  if (logger == nullptr) return;
  va_list args;
  va_start(args, format);
  const EndArguments end(args);
  Deliver(*logger, messageLevel, file, line, function, format, args);
}

void TsLog(LOG_LEVEL level, void (*output)(const char* line), LOG_LEVEL (*getLevel)(),
           const char* file, int line, const char* /*function*/, const char* format, ...) {
  if (getLevel == nullptr) return;
  if (output == nullptr) return;
  if (level > getLevel()) return;
  std::string text;
  va_list args;
  va_start(args, format);
  const EndArguments end(args);
  BuildLine(level, text, file, line, format, args);
  output(text.c_str());
}

}  // namespace tarsio
