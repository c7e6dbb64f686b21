// A sink that knows the level of each line and marks errors.

//! [includes]
#include <cstdarg>
#include <iostream>
#include <memory>
#include <string>

#include "common/log.h"
//! [includes]

namespace {

//! [sink]
class MarkingLogger : public tarsio::Logger {
 public:
  // Called with the level, just before DoOutput() and on the same thread.
  void VFormat(tarsio::LOG_LEVEL level, std::string& out, const char* file, int line,
               const char* function, const char* format, va_list args) override {
    Logger::VFormat(level, out, file, line, function, format, args);
    const bool isError = level <= tarsio::LOG_LEVEL_ERROR;
    out.insert(0, isError ? "!! " : "   ");
  }

  void DoOutput(const char* line) override {
    const std::string text = line;
    std::cout << text.substr(0, 3) << text.substr(text.rfind("] ") + 2) << '\n';
  }
};
//! [sink]

}  // namespace

int main() {
  tarsio::Log::GetInstance().SetLogger(std::make_unique<MarkingLogger>());
  tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_INFO);
  TARSIO_LOG(tarsio::LOG_LEVEL_INFO, "listening");
  TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "port %d is taken", 8080);
  return 0;
}
