#ifndef TARSIO_DIGEST_CONSOLE_LOGGER_H_
#define TARSIO_DIGEST_CONSOLE_LOGGER_H_

#include "common/log.h"

// Sends the log to standard error: standard output belongs to the digests.
class ConsoleLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* line) override;
};

#endif  // TARSIO_DIGEST_CONSOLE_LOGGER_H_
