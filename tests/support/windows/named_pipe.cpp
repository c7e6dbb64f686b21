#include "support/named_pipe.h"

#include <windows.h>

#include <array>

namespace tarsio_test {

namespace {

HANDLE Handle(intptr_t reader) { return reinterpret_cast<HANDLE>(reader); }

}  // namespace

NamedPipe::NamedPipe()
    : reader(reinterpret_cast<intptr_t>(::CreateNamedPipeW(Text().c_str(), PIPE_ACCESS_INBOUND,
                                                           PIPE_TYPE_BYTE | PIPE_NOWAIT, 1, 100,
                                                           100, 0, nullptr))) {}

NamedPipe::~NamedPipe() { ::CloseHandle(Handle(reader)); }

std::wstring NamedPipe::Text() {
  return LR"(\\.\pipe\tarsio-common-test-)" + std::to_wstring(::GetCurrentProcessId());
}

std::string NamedPipe::Received() const {
  std::array<char, 100> bytes{};
  DWORD count = 0;
  ::ReadFile(Handle(reader), bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr);
  return {bytes.data(), count};
}

bool NamedPipe::HasWriter() const {
  return ::PeekNamedPipe(Handle(reader), nullptr, 0, nullptr, nullptr, nullptr) != 0;
}

}  // namespace tarsio_test
