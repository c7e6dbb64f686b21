#ifndef TARSIO_COMMON_LOG_H_
#define TARSIO_COMMON_LOG_H_

/// \file
/// A process-wide log with a severity threshold and a sink that the host can replace.

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

/// Severity: a smaller number is more severe. Any integer is accepted; a value not listed here is
/// printed with an empty name.
enum LOG_LEVEL : int32_t {
  LOG_LEVEL_FATAL = 0,
  LOG_LEVEL_ERROR = 1,
  LOG_LEVEL_WARN = 2,
  LOG_LEVEL_INFO = 3,
  LOG_LEVEL_DEBUG = 4,
};

/// A sink. The default sink formats a line and writes it to standard output:
///
///     [2024-03-05 14:07:09.38][ERROR][worker_main.cpp:145] Convert error: 2
///
/// The milliseconds have no leading zeros (by design): this line is 38 ms past the second.
///
/// To write lines elsewhere, override DoOutput(). To change their layout, override VFormat().
///
/// Threads: every thread that logs calls both functions, possibly at the same time, so overrides
/// must be thread-safe. The default sink writes each line to `std::cout` in one insertion, so lines
/// do not interleave. After `std::ios::sync_with_stdio(false)` this no longer holds: `std::cout`
/// must then not be used by two threads at once.
class TARSIO_COMMON_API Logger {
 public:
  /// A Logger has no state.
  Logger();
  /// Same as the default constructor.
  Logger(const Logger& other);
  /// Does nothing.
  Logger& operator=(const Logger& other);
  virtual ~Logger();

  /// Replaces `out` with one line without a trailing newline. The time is the local time of the
  /// call. Only the last component of `file` is printed (both `/` and `\` are separators).
  /// `function` is not printed. A null `file` or `format` is treated as an empty string.
  ///
  /// A message longer than 2047 bytes is omitted, not truncated (by design), and so is a message
  /// that cannot be formatted; the line then ends in "] ". Formatting fails for a format that ends
  /// inside a conversion ("100%"), a wide character that the C runtime's locale cannot encode
  /// ("%ls"), "%n", numbered arguments ("%1$d") and conversions unknown to printf. Any width and
  /// precision is safe. To truncate a long string, limit it in the format (`%.1900s`). A message
  /// ends at its first NUL (`"%c"` with 0).
  ///
  /// Guarantees: if it throws, `out` is unchanged.
  ///
  /// Throws: `std::bad_alloc`.
  virtual void VFormat(LOG_LEVEL level, std::string& out, const char* file, int line,
                       const char* function, const char* format, va_list args)
      TARSIO_COMMON_PRINTF(7, 0);

  /// Writes `line` and a newline to `std::cout` in one insertion, then flushes. A null `line` is
  /// treated as an empty string. If the stream has failed, the line is silently lost.
  ///
  /// Throws: `std::bad_alloc` before anything is written, and `std::ios_base::failure` if enabled
  /// with `std::cout.exceptions()`.
  virtual void DoOutput(const char* line);
};

class Log;

namespace internal {

// Defined below.
TARSIO_COMMON_LOCAL Log* LogFor(LOG_LEVEL messageLevel);

}  // namespace internal

/// The process-wide log. It has a threshold and owns one sink. The initial threshold is
/// LOG_LEVEL_ERROR: warnings and less severe messages are dropped until SetLevel() is called.
///
/// The library itself logs only these events: an exception thrown by a task (LOG_LEVEL_FATAL),
/// unavailable system information (LOG_LEVEL_ERROR), a queue that refuses an element
/// (LOG_LEVEL_WARN) and failed or invalid encoding conversions (LOG_LEVEL_INFO).
///
/// Threads: DoLog() and SetLevel() may be called from any thread at any time. SetLogger() takes no
/// lock: install the sink before other threads log.
class TARSIO_COMMON_API Log {
 public:
  /// The instance, created by the first call and never destroyed. At the end of the process the
  /// host's sink is destroyed, in the order of a static object constructed by that first call, and
  /// later messages are dropped. A sink that a thread is still using about 250 ms later, or that
  /// itself called exit(), is not destroyed.
  static Log& GetInstance();

  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  /// Messages with a level of at most `newLevel` are logged. Any integer is accepted: with a
  /// negative value none of the five levels is logged, with 4 or more all of them are.
  void SetLevel(LOG_LEVEL newLevel);

  /// Takes ownership of `newLogger` and destroys the previous sink. If `newLogger` is empty, all
  /// messages are dropped.
  void SetLogger(std::unique_ptr<Logger>&& newLogger);

  /// Formats a message by the rules of printf and passes it to the sink, on the calling thread. If
  /// `messageLevel` is above the threshold, nothing is formatted. `file` is the caller's source
  /// file, `function` the caller's name. TARSIO_LOG() passes both; its function name has no class
  /// or namespace, while the library's own messages have the qualified name.
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

/// Logs without the process-wide log: neither its threshold nor its sink is used. Calls `getLevel`
/// once for the threshold. If `level` is at most that, formats a line as the default sink does and
/// passes it, without a newline, to `output`. Both are called on the calling thread. Does nothing
/// if `getLevel` or `output` is null.
///
/// Threads: may be called from any thread if `getLevel` and `output` may.
///
/// Throws: `std::bad_alloc`, and whatever the two functions throw.
TARSIO_COMMON_API void TsLog(LOG_LEVEL level, void (*output)(const char* line),
                             LOG_LEVEL (*getLevel)(), const char* file, int line,
                             const char* function, const char* format, ...)
    TARSIO_COMMON_PRINTF(7, 8);

namespace internal {

// The log, or null if `messageLevel` is above its threshold.
TARSIO_COMMON_LOCAL inline Log* LogFor(LOG_LEVEL messageLevel) {
  // NOLINTNEXTLINE(*-non-const-global-variables): the log is not const
  static Log& log = Log::GetInstance();
  return messageLevel <= log.level.load(std::memory_order_relaxed) ? &log : nullptr;
}

}  // namespace internal

}  // namespace tarsio

/// `TARSIO_LOG(level, format, ...)` logs to the process-wide log with the caller's file, line and
/// function (`__func__`, which has no class or namespace). It is a statement, not an expression.
/// `level` is evaluated once. The other arguments are not evaluated if `level` is above the
/// threshold.
#define TARSIO_LOG(messageLevel, ...)                                               \
  do {                                                                              \
    const ::tarsio::LOG_LEVEL tarsioLevel_ = (messageLevel);                        \
    if (::tarsio::Log* const tarsioLog_ = ::tarsio::internal::LogFor(tarsioLevel_)) \
      tarsioLog_->DoLog(tarsioLevel_, __FILE__, __LINE__, __func__, __VA_ARGS__);   \
  } while (false)

#endif  // TARSIO_COMMON_LOG_H_
