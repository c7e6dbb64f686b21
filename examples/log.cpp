// Logging through the process-wide log, with a sink of the host's own.

#include "common/log.h"

#include <iostream>
#include <memory>
#include <string>

namespace {

// Shows what follows the time.
class ShortLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* line) override {
    const std::string text = line;
    std::cout << text.substr(text.find("][") + 1) << '\n';
  }
};

}  // namespace

int main() {
  tarsio::Log& log = tarsio::Log::GetInstance();
  log.SetLogger(std::make_unique<ShortLogger>());

  TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "disk %s is full to %d percent", "C:", 99);
  TARSIO_LOG(tarsio::LOG_LEVEL_INFO, "dropped: the threshold is ERROR at first");
  log.SetLevel(tarsio::LOG_LEVEL_DEBUG);
  TARSIO_LOG(tarsio::LOG_LEVEL_INFO, "now it passes");
  return 0;
}
