#ifndef TARSIO_DIGEST_CONSOLE_H_
#define TARSIO_DIGEST_CONSOLE_H_

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "common/log.h"

// Standard error: whole lines, and below them one line that is drawn over again.
//
// Threads: every member may be called from any thread.
class Console {
 public:
  void PrintLine(const std::string& line);
  // PrintLine() with the program's name in front.
  void PrintMessage(const std::string& message);
  // Replaces the status line; an empty one erases it.
  void ShowStatus(const std::string& text);

  static bool IsTerminal(std::FILE* stream);

 private:
  std::mutex mutex;
  std::string status;  // guarded by mutex; what stands on the screen
};

// Sends the log to the console.
class ConsoleLogger : public tarsio::Logger {
 public:
  explicit ConsoleLogger(std::shared_ptr<Console> target);
  void DoOutput(const char* line) override;

 private:
  const std::shared_ptr<Console> console;
};

#endif  // TARSIO_DIGEST_CONSOLE_H_
