#ifndef TARSIO_COMMON_LOG_H_
#define TARSIO_COMMON_LOG_H_

/// \file
/// One process-wide log with a severity threshold and a sink that the host may replace.

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <string>

#include "common/export.h"

#if defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
#error "common/: the library has the std::string of _GLIBCXX_USE_CXX11_ABI=1; compile with it"
#endif

namespace tarsio {

/// Severity: a smaller number is more severe. Any integer is accepted; one without a name here is
/// printed with an empty name.
enum LOG_LEVEL : int32_t {
  LOG_LEVEL_FATAL = 0,
  LOG_LEVEL_ERROR = 1,
  LOG_LEVEL_WARN = 2,
  LOG_LEVEL_INFO = 3,
  LOG_LEVEL_DEBUG = 4,
};

/// A sink. The default one builds a line and writes it to standard output:
///
///     [2024-03-05 14:07:09.38][ERROR][worker_main.cpp:145] Convert error: 2
///
/// The milliseconds carry no leading zeros: this is 38 ms past the second.
///
/// Derive from it to send lines elsewhere (DoOutput()) or to lay them out differently (VFormat()).
///
/// Threads: both operations are called from every thread that logs, at the same time; an override
/// must bear that. The default sink inserts each line into `std::cout` whole, so lines do not mix,
/// unless the host has called `std::ios::sync_with_stdio(false)`: then `std::cout` itself must not
/// be used by two threads at once.
class TARSIO_COMMON_API Logger {
 public:
  /// A sink holds nothing, so copies and assignments have nothing to do.
  Logger();
  /// As the default constructor.
  Logger(const Logger& other);
  /// Changes nothing.
  Logger& operator=(const Logger& other);
  virtual ~Logger();

  /// Replaces `out` with one line, without a newline at its end. The time is the local time of the
  /// call. `file` is reduced to its last component (both `/` and `\` separate). `function` is not
  /// printed. A null `file` or `format` stands for an empty one.
  ///
  /// A message of more than 2047 bytes is left out as a whole, and so is one that cannot be
  /// formatted: the line then ends in "] ". That includes a format that ends within a conversion
  /// ("100%"), a wide character that the C runtime's locale cannot encode ("%ls"), "%n", numbered
  /// arguments ("%1$d") and conversions that printf does not have. No width or precision is too
  /// much.
  /// To have a long string cut instead, limit it in the format (`%.1900s`). A message with a NUL in
  /// it (`"%c"` with 0) ends there.
  ///
  /// Throws: memory exhaustion; `out` is then unchanged.
  virtual void VFormat(LOG_LEVEL level, std::string& out, const char* file, int line,
                       const char* function, const char* format, va_list args)
      TARSIO_COMMON_PRINTF(7, 0);

  /// Writes `line` and a newline to `std::cout` in one insertion, and flushes. A null `line` is an
  /// empty one. If the stream has failed, the line is silently lost.
  ///
  /// Throws: `std::bad_alloc`, before anything is written; `std::ios_base::failure` if
  /// `std::cout.exceptions()` enables it.
  virtual void DoOutput(const char* line);
};

class Log;

namespace internal {

// Below.
TARSIO_COMMON_LOCAL Log* LogFor(LOG_LEVEL messageLevel);

}  // namespace internal

/// The process-wide log. It holds a threshold (LOG_LEVEL_ERROR at first, so warnings and below are
/// dropped until SetLevel() lets them through) and owns one sink.
///
/// The library itself reports a task's exception (LOG_LEVEL_FATAL), system information that is not
/// to be had (LOG_LEVEL_ERROR), a queue that refuses an element (LOG_LEVEL_WARN) and misuse of the
/// conversions (LOG_LEVEL_INFO). Nothing else is reported.
///
/// Threads: DoLog() may be called from any thread. No lock is taken: install the sink before other
/// threads log. The threshold may be changed at any time.
class TARSIO_COMMON_API Log {
 public:
  /// The one instance, built by the first caller. It stays for threads and statics that outlive it;
  /// the host's sink is destroyed at the end of the process, in reverse order of construction among
  /// the statics, and later lines are dropped. A sink that is still at work 250 ms later, or that
  /// called exit(), is not destroyed.
  static Log& GetInstance();

  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  /// A message passes when its level is at most `newLevel`. Any integer is accepted: a negative
  /// one silences everything, 4 and above let all five levels through.
  void SetLevel(LOG_LEVEL newLevel);

  /// Takes over `newLogger`, which is left empty, and deletes the sink before. Nothing happens if
  /// the argument is the log's own owner. With an empty owner, lines are dropped.
  void SetLogger(std::unique_ptr<Logger>&& newLogger);

  /// Formats a line by printf's rules and hands it to the sink, on the calling thread. A message
  /// above the threshold is dropped: nothing is formatted. `file` is the caller's source path,
  /// `function` its name. TARSIO_LOG() passes them, the name without class and namespace; the
  /// library's own reports pass the qualified name.
  ///
  /// Throws: whatever the sink throws.
  void DoLog(LOG_LEVEL messageLevel, const char* file, int line, const char* function,
             const char* format, ...) TARSIO_COMMON_PRINTF(6, 7);

 private:
  class EndAtExit;
  friend Log* internal::LogFor(LOG_LEVEL messageLevel);

  Log();
  ~Log();

  std::unique_ptr<Logger> logger;
  std::atomic<LOG_LEVEL> level;  // relaxed: a threshold orders nothing
};

/// Builds a line as the default sink does and hands it, without a newline, to `output`, once, on
/// the calling thread. `getLevel` is asked once for the threshold. Does nothing if `getLevel` or
/// `output` is null. The process-wide log is not touched, neither its threshold nor its sink.
///
/// Threads: as safe as the two functions are.
TARSIO_COMMON_API void TsLog(LOG_LEVEL level, void (*output)(const char* line),
                             LOG_LEVEL (*getLevel)(), const char* file, int line,
                             const char* function, const char* format, ...)
    TARSIO_COMMON_PRINTF(7, 8);

namespace internal {

// The log, or null if a message of that level does not pass its threshold.
TARSIO_COMMON_LOCAL inline Log* LogFor(LOG_LEVEL messageLevel) {
  // NOLINTNEXTLINE(*-non-const-global-variables): the log is not const
  static Log& log = Log::GetInstance();
  return messageLevel <= log.level.load(std::memory_order_relaxed) ? &log : nullptr;
}

}  // namespace internal

}  // namespace tarsio

/// `TARSIO_LOG(level, format, ...)` logs through the process-wide log with the caller's file, line
/// and function (`__func__`: the name alone, without class and namespace). It is a statement, not
/// an expression. If the message does not pass the threshold, the format's arguments are not
/// evaluated; `level` is, once.
#define TARSIO_LOG(messageLevel, ...)                                               \
  do {                                                                              \
    const ::tarsio::LOG_LEVEL tarsioLevel_ = (messageLevel);                        \
    if (::tarsio::Log* const tarsioLog_ = ::tarsio::internal::LogFor(tarsioLevel_)) \
      tarsioLog_->DoLog(tarsioLevel_, __FILE__, __LINE__, __func__, __VA_ARGS__);   \
  } while (false)

#endif  // TARSIO_COMMON_LOG_H_
