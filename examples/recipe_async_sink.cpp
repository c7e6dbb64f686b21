// A sink that passes lines to a thread, so that logging does not wait for the disk. No line is lost
// if the sink is replaced before main() returns.

//! [includes]
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "common/blocking_queue.h"
#include "common/log.h"
//! [includes]

namespace {

//! [sink]
class AsyncLogger : public tarsio::Logger {
 public:
  AsyncLogger() : writer([this] { WriteLines(); }) {}
  AsyncLogger(const AsyncLogger&) = delete;
  AsyncLogger& operator=(const AsyncLogger&) = delete;

  // Close() would discard the queued lines, so a null line marks the end instead.
  ~AsyncLogger() override {
    static_cast<void>(lines.Push(std::nullopt, kForEver));
    writer.join();
  }

  void DoOutput(const char* line) override {
    static_cast<void>(lines.Push(std::string(line), kForEver));  // waits while 1000 are queued
  }

 private:
  static constexpr int kForEver = 0;

  void WriteLines() {
    std::optional<std::string> line;
    while (lines.Pop(line, kForEver) && line) {
      std::cout << line->substr(line->rfind("] ") + 2) << '\n';
    }
    std::cout << std::flush;
  }

  tarsio::BlockingQueue<std::optional<std::string>> lines{1000};
  std::thread writer;  // last: it uses the queue
};
//! [sink]

}  // namespace

int main() {
  tarsio::Log& log = tarsio::Log::GetInstance();
  log.SetLogger(std::make_unique<AsyncLogger>());
  for (int i = 1; i <= 3; ++i) TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "line %d", i);
  //! [end]
  // Before main() returns, while the thread still runs on every system.
  log.SetLogger(nullptr);
  //! [end]
  return 0;
}
