#include "console.h"

#include <unistd.h>  // isatty: mingw-w64 has it too

#include <algorithm>
#include <iostream>
#include <utility>

namespace {

std::string Spaces(size_t count) { return '\r' + std::string(count, ' ') + '\r'; }

}  // namespace

void Console::PrintLine(const std::string& line) {
  const std::lock_guard<std::mutex> lock(mutex);
  const std::string erased = status.empty() ? "" : Spaces(status.size());
  std::cerr << erased + line + '\n' + status << std::flush;
}

void Console::PrintMessage(const std::string& message) { PrintLine("tarsio-digest: " + message); }

void Console::ShowStatus(const std::string& text) {
  const std::lock_guard<std::mutex> lock(mutex);
  const size_t leftOver = status.size() - std::min(status.size(), text.size());
  if (!status.empty() || !text.empty()) {
    std::cerr << (text.empty() ? Spaces(status.size()) : '\r' + text + std::string(leftOver, ' '))
              << std::flush;
  }
  status = text;
}

bool Console::IsTerminal(std::FILE* stream) { return ::isatty(::fileno(stream)) != 0; }

ConsoleLogger::ConsoleLogger(std::shared_ptr<Console> target) : console(std::move(target)) {}

void ConsoleLogger::DoOutput(const char* line) { console->PrintLine(line); }
