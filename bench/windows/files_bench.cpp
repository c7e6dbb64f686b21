// Whole files with the library and with plain Windows calls, as ratios. Under Wine the times are
// Wine's, but both sides pay for the same calls.

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "common/file_utils.h"

namespace {

using tarsio::FileUtils;

constexpr int kWriteBinary = 0x32;  // output, truncate, binary
const std::string kName = "files_bench.tmp";
const std::wstring kWideName = L"files_bench.tmp";

HANDLE Open(DWORD access, DWORD disposition) {
  return ::CreateFileW(kWideName.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                       disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool PlainRead() {
  const HANDLE file = Open(GENERIC_READ, OPEN_EXISTING);
  LARGE_INTEGER size{};
  if (::GetFileSizeEx(file, &size) == 0) return false;
  std::string content(static_cast<size_t>(size.QuadPart), '\0');
  DWORD count = 0;
  const bool read =
      ::ReadFile(file, &content[0], static_cast<DWORD>(content.size()), &count, nullptr) != 0;
  ::CloseHandle(file);
  return read && count == content.size();
}

// By value, like the library.
bool PlainWrite(std::string content) {
  const HANDLE file = Open(GENERIC_WRITE, CREATE_ALWAYS);
  DWORD count = 0;
  const bool written =
      ::WriteFile(file, content.data(), static_cast<DWORD>(content.size()), &count, nullptr) != 0;
  ::CloseHandle(file);
  return written && count == content.size();
}

bool OurRead() {
  std::string content;
  return FileUtils::GetFileContent(".\\" + kName, content) == tarsio::FILE_OPT_SUCCESS;
}

bool OurWrite(const std::string& content) {
  return FileUtils::WriteFile(content, ".\\" + kName, kWriteBinary) == tarsio::FILE_OPT_SUCCESS;
}

double Microseconds(const std::function<bool()>& call) {
  constexpr int kCalls = 20;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < kCalls; ++i) {
    if (!call()) std::abort();
  }
  const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - begin;
  return time.count() / kCalls;
}

// Alternates the sides and takes the fastest round of each, so that other programs matter less.
void Compare(const char* what, size_t bytes, const std::function<bool()>& ours,
             const std::function<bool()>& plain) {
  constexpr int kRounds = 40;
  double ourBest = 1e9;
  double plainBest = 1e9;
  for (int round = 0; round < kRounds; ++round) {
    ourBest = std::min(ourBest, Microseconds(ours));
    plainBest = std::min(plainBest, Microseconds(plain));
  }
  std::printf("%s %8zu bytes: ours %9.1f us, plain calls %9.1f us, ratio %.2f\n", what, bytes,
              ourBest, plainBest, ourBest / plainBest);
}

}  // namespace

int main() {
  for (const size_t bytes : {4096U, 1U << 20, 1U << 24}) {
    const std::string content(bytes, 'x');
    Compare(
        "write", bytes, [&] { return OurWrite(content); }, [&] { return PlainWrite(content); });
    Compare("read ", bytes, OurRead, PlainRead);
  }
  ::DeleteFileW(kWideName.c_str());
}
