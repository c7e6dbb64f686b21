#include "support/named_pipe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace tarsio_test {

namespace {

constexpr char kName[] = "pipe";

}  // namespace

struct NamedPipe::State {
  int reader = -1;
};

NamedPipe::NamedPipe() : state(std::make_unique<State>()) {
  if (::mkfifo(kName, 0600) != 0) std::abort();
  state->reader = ::open(kName, O_RDONLY | O_NONBLOCK);
}

NamedPipe::~NamedPipe() {
  ::close(state->reader);
  ::unlink(kName);
}

std::wstring NamedPipe::Text() const { return LR"(.\pipe)"; }

std::string NamedPipe::Received() const {
  std::array<char, 100> bytes{};
  const ssize_t count = ::read(state->reader, bytes.data(), bytes.size());
  return {bytes.data(), count > 0 ? static_cast<size_t>(count) : 0};
}

bool NamedPipe::HasWriter() const {
  char byte = 0;
  return ::read(state->reader, &byte, 1) != 0;  // 0: end of file
}

}  // namespace tarsio_test
