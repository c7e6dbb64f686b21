#include "common/log.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <utility>

#include "common/path.h"
#include "platform/platform.h"

namespace tarsio {

namespace {

constexpr size_t kMessageBufferSize = 2048;  // the longest message and its terminator
constexpr size_t kTimeBufferSize = 30;

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

// "2024-03-05 14:07:09.38": the milliseconds without leading zeros, deliberately.
std::string LocalTimestamp() {
  const int64_t ticks = platform::WallClockTicks();
  std::array<char, kTimeBufferSize> seconds{};
  std::tm local{};
  if (platform::LocalTime(ticks / 10000000, &local)) {
    // A result of 0 leaves the contents open.
    if (std::strftime(seconds.data(), seconds.size(), "%Y-%m-%d %H:%M:%S", &local) == 0) {
      seconds[0] = '\0';
    }
  }
  return std::string(seconds.data()) + '.' + std::to_string(ticks / 10000 % 1000);
}

// The message, or an empty text for one that is too long (never cut) or cannot be formatted.
std::string FormatMessage(const char* format, va_list args) {
  if (format == nullptr) return {};
  std::array<char, kMessageBufferSize> buffer{};
  const int length = std::vsnprintf(buffer.data(), buffer.size(), format, args);
  if (length < 0 || static_cast<size_t>(length) >= buffer.size()) return {};
  return buffer.data();
}

void BuildLine(LOG_LEVEL level, std::string& out, const char* file, int line, const char* format,
               va_list args) {
  out = '[' + LocalTimestamp() + "][" + LevelName(level) + "][" + Path(file).Filename() + ':' +
        std::to_string(line) + "] " + FormatMessage(format, args);
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
  std::string text = line;
  text += '\n';  // in the same insertion, or lines of several threads would mix
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
  std::string text;
  va_list args;
  va_start(args, format);
  const EndArguments end(args);
  logger->VFormat(messageLevel, text, file, line, function, format, args);
  logger->DoOutput(text.c_str());
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
