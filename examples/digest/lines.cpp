#include "lines.h"

#include <unistd.h>  // read: mingw-w64 has it too

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

namespace {

File Open(const std::string& name) {
  return name == "-" ? nullptr : OpenForReading(std::filesystem::u8path(name));
}

}  // namespace

LineReader::LineReader(const std::string& name)
    : opened(Open(name)), file(name == "-" ? stdin : opened.get()) {
  if (file == nullptr) failure = std::generic_category().message(errno);
}

bool LineReader::Next(char terminator, std::string* line) {
  line->clear();
  while (begin != end || Fill()) {
    const char* const found = std::find(begin, end, terminator);
    line->append(begin, found);
    begin = found;
    if (begin == end) continue;
    ++begin;
    return true;
  }
  return failure.empty() && !line->empty();
}

// Uses read() because fread() blocks until its buffer is full.
bool LineReader::Fill() {
  if (!failure.empty()) return false;
  const auto size = ::read(::fileno(file), buffer.data(), kBufferSize);
  if (size < 0) failure = std::generic_category().message(errno);
  begin = buffer.data();
  end = begin + (size > 0 ? size : 0);
  return begin != end;
}
