#ifndef TARSIO_DIGEST_CONSOLE_H_
#define TARSIO_DIGEST_CONSOLE_H_

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include "common/log.h"

// Standard error: writes whole lines, and redraws a status line below them.
//
// Threads: every member may be called concurrently.
class Console {
 public:
  void PrintLine(const std::string& line);
  // Like PrintLine(), prefixed with the program's name.
  void PrintMessage(const std::string& message);
  // Replaces the status line; an empty one erases it.
  void ShowStatus(const std::string& text);

  static bool IsTerminal(std::FILE* stream);

 private:
  std::mutex mutex;
  std::string status;  // guarded by mutex; as currently displayed
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
