#include "support/named_pipe.h"

#include <windows.h>

#include <array>

namespace tarsio_test {

struct NamedPipe::State {
  std::wstring name;
  HANDLE reader = INVALID_HANDLE_VALUE;
};

NamedPipe::NamedPipe() : state(std::make_unique<State>()) {
  state->name = LR"(\\.\pipe\tarsio-common-test-)" + std::to_wstring(::GetCurrentProcessId());
  state->reader = ::CreateNamedPipeW(state->name.c_str(), PIPE_ACCESS_INBOUND,
                                     PIPE_TYPE_BYTE | PIPE_NOWAIT, 1, 100, 100, 0, nullptr);
}

NamedPipe::~NamedPipe() { ::CloseHandle(state->reader); }

std::wstring NamedPipe::Text() const { return state->name; }

std::string NamedPipe::Received() const {
  std::array<char, 100> bytes{};
  DWORD count = 0;
  ::ReadFile(state->reader, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
  return {bytes.data(), count};
}

bool NamedPipe::HasWriter() const {
  return ::PeekNamedPipe(state->reader, nullptr, 0, nullptr, nullptr, nullptr) != 0;
}

}  // namespace tarsio_test
