#include "common/log.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "common/path.h"
#include "message_format.h"
#include "path_syntax.h"
#include "platform/platform.h"

namespace tarsio {

namespace {

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

void AppendTwoDigits(std::string& out, char separator, int value) {
  const char text[] = {separator, static_cast<char>('0' + value / 10),
                       static_cast<char>('0' + value % 10)};
  out.append(text, sizeof text);
}

// "2024-03-05 14:07:09.38": the milliseconds have no leading zeros (by design).
void AppendLocalTime(std::string& out) {
  const int64_t ticks = platform::WallClockTicks();
  std::tm local{};
  if (platform::LocalTime(ticks / 10000000, &local)) {
    out += std::to_string(local.tm_year + 1900);
    AppendTwoDigits(out, '-', local.tm_mon + 1);
    AppendTwoDigits(out, '-', local.tm_mday);
    AppendTwoDigits(out, ' ', local.tm_hour);
    AppendTwoDigits(out, ':', local.tm_min);
    AppendTwoDigits(out, ':', local.tm_sec);
  }
  out += '.';
  out += std::to_string(ticks / 10000 % 1000);
}

// Appends the last component of `file`, like Path::Filename().
void AppendFilename(std::string& out, std::string_view file) {
  const auto last = std::find_if_not(file.rbegin(), file.rend(), IsSeparator);
  const auto first = std::find_if(last, file.rend(), IsSeparator);
  const std::string_view name =
      file.substr(static_cast<size_t>(file.rend() - first), static_cast<size_t>(first - last));
  // These names may be part of a path prefix; let Path parse them.
  const bool maybePrefix = name == "?" || name == "UNC";
  if (maybePrefix) {
    out += Path(std::string(file)).Filename();
  } else {
    out += name;
  }
}

// Appends the message, or nothing if it is too long or cannot be formatted. It is never truncated.
void AppendMessage(std::string& out, const char* format, va_list args) {
  if (format == nullptr) return;
  // NOLINTNEXTLINE(*-member-init): clearing it costs as much as formatting a short message
  MessageBuffer buffer;
  if (FormatLogMessage(buffer, format, args)) out += buffer.data();
}

void BuildLine(LOG_LEVEL level, std::string& out, const char* file, int line, const char* format,
               va_list args) {
  std::string text;
  text.reserve(200);  // more than most lines have
  text += '[';
  AppendLocalTime(text);
  text += "][";
  text += LevelName(level);
  text += "][";
  AppendFilename(text, file != nullptr ? file : "");
  text += ':';
  text += std::to_string(line);
  text += "] ";
  AppendMessage(text, format, args);
  out = std::move(text);
}

// NOLINTBEGIN(*-non-const-global-variables): constant-initialised, and outlive every static
std::atomic<bool> logHasEnded{false};

// At exit, the log waits for the lines in progress before it destroys the host's sink. The default
// sink is never destroyed, so its lines are not counted.
std::atomic<bool> hasHostSink{false};
std::atomic<int> forkCountOfSink{0};  // platform::ForkCount() when it was installed
std::atomic<int> linesInProgress{0};
// NOLINTEND(*-non-const-global-variables)

class LineInProgress {
 public:
  LineInProgress() : counted(hasHostSink.load(std::memory_order_relaxed)) {
    if (counted) linesInProgress.fetch_add(1);
  }
  LineInProgress(const LineInProgress&) = delete;
  LineInProgress& operator=(const LineInProgress&) = delete;
  ~LineInProgress() {
    if (counted) linesInProgress.fetch_sub(1);
  }

 private:
  const bool counted;
};

// Returns `line`, padded like an insertion into `stream`, and a newline. Resets the stream's width.
std::string PaddedLine(std::ostream& stream, std::string_view line) {
  const auto width = static_cast<size_t>(std::max<std::streamsize>(stream.width(), 0));
  if (width > 0) stream.width(0);  // write only if needed, since other threads read it
  std::string text;
  text.reserve(std::max(line.size(), width) + 1);
  text += line;
  if (width > line.size()) {
    const bool left = (stream.flags() & std::ios_base::adjustfield) == std::ios_base::left;
    text.insert(left ? text.size() : 0, width - line.size(), stream.fill());
  }
  text += '\n';
  return text;
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
  const platform::ScopedSignalBlock noSignal(platform::StandardOutputSignal());
  // One insertion, so that lines of several threads do not interleave.
  std::cout << PaddedLine(std::cout, line != nullptr ? line : "") << std::flush;
}

Log::Log() : logger(new Logger), level(LOG_LEVEL_ERROR) {}
Log::~Log() = default;

// Destroys the host's sink when statics are destroyed. Other threads may still be logging.
class Log::EndAtExit {
 public:
  explicit EndAtExit(Log* ended) : log(ended) {}
  EndAtExit(const EndAtExit&) = delete;
  EndAtExit& operator=(const EndAtExit&) = delete;
  ~EndAtExit() {
    logHasEnded = true;  // later lines are dropped
    // A line may never end: the sink called exit() or is stuck, or the system killed the thread.
    // The sink is then not destroyed.
    for (int waits = 0; linesInProgress > 0; ++waits) {
      if (waits == kMostWaits || platform::ProcessIsEnding() || WasForkedSince()) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (hasHostSink) log->logger.reset();
  }

 private:
  // Lines of the parent's threads never end in a forked process.
  static bool WasForkedSince() { return platform::ForkCount() != forkCountOfSink; }

  static constexpr int kMostWaits = 250;
  Log* const log;
};

Log& Log::GetInstance() {
  // Never destroyed, since threads may outlive statics. Only the sink is destroyed.
  // NOLINTNEXTLINE(*-non-const-global-variables): the log is not const
  static Log* const instance = [] {
    auto* const log = new Log;  // NOLINT(*-owning-memory): see above
    static const EndAtExit end(log);
    return log;
  }();
  return *instance;
}

void Log::SetLevel(LOG_LEVEL newLevel) { level.store(newLevel, std::memory_order_relaxed); }

void Log::SetLogger(std::unique_ptr<Logger>&& newLogger) {
  hasHostSink = true;
  forkCountOfSink = platform::ForkCount();
  logger = std::move(newLogger);
}

void Log::DoLog(LOG_LEVEL messageLevel, const char* file, int line, const char* function,
                const char* format, ...) {
  if (messageLevel > level.load(std::memory_order_relaxed)) return;
  if (logHasEnded) return;
  const LineInProgress inProgress;
  // The log may have ended before the line was counted.
  if (logHasEnded || logger == nullptr) return;
  std::string text;
  va_list args;
  va_start(args, format);
  try {
    logger->VFormat(messageLevel, text, file, line, function, format, args);
  } catch (...) {
    va_end(args);
    throw;
  }
  va_end(args);
  // Read the pointer again: VFormat() may have replaced the sink.
  if (logger != nullptr) logger->DoOutput(text.c_str());
}

void TsLog(LOG_LEVEL level, void (*output)(const char* line), LOG_LEVEL (*getLevel)(),
           const char* file, int line, const char* /*function*/, const char* format, ...) {
  if (getLevel == nullptr) return;
  if (output == nullptr) return;
  if (level > getLevel()) return;
  std::string text;
  va_list args;
  va_start(args, format);
  try {
    BuildLine(level, text, file, line, format, args);
  } catch (...) {
    va_end(args);
    throw;
  }
  va_end(args);
  output(text.c_str());
}

}  // namespace tarsio
