// Logging through the process-wide log with a custom sink, and logging without it.

//! [includes]
#include "common/log.h"

#include <iostream>
#include <memory>
#include <string>
//! [includes]

namespace {

// Prints the line without the time.
void Show(const char* line) {
  const std::string text = line;
  std::cout << text.substr(text.find("][") + 1) << '\n';
}

//! [sink]
class ShortLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* line) override { Show(line); }
};
//! [sink]

//! [threshold function]
tarsio::LOG_LEVEL Threshold() { return tarsio::LOG_LEVEL_WARN; }
//! [threshold function]

}  // namespace

int main() {
  //! [install]
  tarsio::Log& log = tarsio::Log::GetInstance();
  log.SetLogger(std::make_unique<ShortLogger>());  // before other threads log
  //! [install]

  //! [levels]
  TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "disk %s is full to %d percent", "C:", 99);
  TARSIO_LOG(tarsio::LOG_LEVEL_INFO, "dropped: the threshold is ERROR at first");
  log.SetLevel(tarsio::LOG_LEVEL_DEBUG);
  TARSIO_LOG(tarsio::LOG_LEVEL_INFO, "now it passes");
  //! [levels]

  //! [past the log]
  tarsio::TsLog(tarsio::LOG_LEVEL_WARN, Show, Threshold, __FILE__, __LINE__, __func__,
                "past the log, by %s", "a threshold of its own");
  //! [past the log]
  return 0;
}
