#include "support/named_pipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace tarsio_test {

NamedPipe::NamedPipe() {
  if (::mkfifo("pipe", 0600) != 0) std::abort();
  reader = ::open("pipe", O_RDONLY | O_NONBLOCK);
}

NamedPipe::~NamedPipe() {
  ::close(static_cast<int>(reader));
  ::unlink("pipe");
}

std::wstring NamedPipe::Text() { return LR"(.\pipe)"; }

std::string NamedPipe::Received() const {
  std::array<char, 100> bytes{};
  const ssize_t count = ::read(static_cast<int>(reader), bytes.data(), bytes.size());
  return {bytes.data(), count > 0 ? static_cast<size_t>(count) : 0};
}

bool NamedPipe::HasWriter() const {
  char byte = 0;
  return ::read(static_cast<int>(reader), &byte, 1) != 0;  // 0: end of file
}

}  // namespace tarsio_test
