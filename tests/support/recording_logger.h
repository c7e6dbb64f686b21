// A sink that records what is logged.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_RECORDING_LOGGER_H_
#define TARSIO_COMMON_TESTS_SUPPORT_RECORDING_LOGGER_H_

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/log.h"

namespace tarsio_test {

struct LogRecord {
  tarsio::LOG_LEVEL level;
  std::string file;
  int line;
  std::string function;
  std::string text;  // the whole line
};

// The lines logged since Install(). Outlives the sink, which the log owns.
class LogRecords {
 public:
  // Replaces the process's sink by one that records the levels up to `level`.
  static std::shared_ptr<LogRecords> Install(tarsio::LOG_LEVEL level) {
    auto records = std::make_shared<LogRecords>();
    tarsio::Log::GetInstance().SetLogger(std::make_unique<Sink>(records));
    tarsio::Log::GetInstance().SetLevel(level);
    return records;
  }

  std::vector<LogRecord> All() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return records;
  }

 private:
  class Sink : public tarsio::Logger {
   public:
    explicit Sink(std::shared_ptr<LogRecords> target) : records(std::move(target)) {}

    void VFormat(tarsio::LOG_LEVEL level, std::string& out, const char* file, int line,
                 const char* function, const char* format, va_list args) override {
      Logger::VFormat(level, out, file, line, function, format, args);
      const std::lock_guard<std::mutex> lock(records->mutex);
      records->records.push_back({level, file, line, function, out});
    }

    void DoOutput(const char* /*line*/) override {}

   private:
    const std::shared_ptr<LogRecords> records;
  };

  mutable std::mutex mutex;
  std::vector<LogRecord> records;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_RECORDING_LOGGER_H_
