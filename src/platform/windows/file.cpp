#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

namespace {

// The runtime's calls count bytes in int. This is a multiple of the page size that fits.
constexpr size_t kLargestTransfer = 0x40000000;

HANDLE HandleOf(int descriptor) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the runtime returns handles as integers
  return reinterpret_cast<HANDLE>(::_get_osfhandle(descriptor));
}

// Moves an open file above the three standard descriptors: if the host has closed one of them,
// other threads' output to it would end up in the file. Returns -1 on failure.
int MoveAboveStandard(int descriptor) {
  std::array<int, 3> standard{};
  size_t count = 0;
  while (descriptor >= 0 && descriptor < static_cast<int>(standard.size())) {
    standard[count++] = descriptor;
    descriptor = ::_dup(descriptor);
  }
  if (count == 0) return descriptor;
  while (count > 0) ::_close(standard[--count]);
  if (descriptor >= 0) ::SetHandleInformation(HandleOf(descriptor), HANDLE_FLAG_INHERIT, 0);
  return descriptor;
}

int OpenShared(const std::wstring& path, int flags) {
  return MoveAboveStandard(
      ::_wsopen(path.c_str(), flags | _O_NOINHERIT, _SH_DENYNO, _S_IREAD | _S_IWRITE));
}

// Devices and pipes have no end to seek to, although the runtime's seek succeeds on some of them.
bool SeekToEnd(int descriptor) {
  return ::GetFileType(HandleOf(descriptor)) == FILE_TYPE_DISK &&
         ::_lseeki64(descriptor, 0, SEEK_END) >= 0;
}

}  // namespace

File File::OpenForReading(const std::wstring& path) {
  return File(OpenShared(path, _O_RDONLY | _O_BINARY));
}

File File::OpenForWriting(const std::wstring& path, const WriteMode& mode) {
  int flags = mode.alsoRead ? _O_RDWR : _O_WRONLY;
  flags |= mode.text ? _O_TEXT : _O_BINARY;
  if (!mode.mustExist) flags |= _O_CREAT;
  if (mode.truncate) flags |= _O_TRUNC;
  if (mode.append) flags |= _O_APPEND;
  const int descriptor = OpenShared(path, flags);
  if (descriptor >= 0 && mode.atEnd && !SeekToEnd(descriptor)) {
    ::_close(descriptor);
    return File(-1);
  }
  return File(descriptor);
}

File::~File() {
  if (IsOpen()) ::_close(descriptor);
}

size_t File::Read(char* buffer, size_t size, size_t expected) {
  size_t done = 0;
  while (done < size) {
    const auto request = static_cast<unsigned>(std::min(size - done, kLargestTransfer));
    const int count = ::_read(descriptor, buffer + done, request);
    if (count <= 0) break;
    done += static_cast<size_t>(count);
    if (done == expected && static_cast<unsigned>(count) < request) break;
  }
  return done;
}

void File::Write(const char* data, size_t size) {
  while (size > 0) {
    const auto chunk = static_cast<unsigned>(std::min(size, kLargestTransfer));
    const int count = ::_write(descriptor, data, chunk);
    if (count <= 0) return;
    data += count;
    size -= static_cast<size_t>(count);
  }
}

// A failing write raises no signal here.
int StandardOutputSignal() { return 0; }

ScopedSignalBlock::ScopedSignalBlock(int /*signal*/) {}

void ScopedSignalBlock::DiscardAndUnblock() const {}

}  // namespace tarsio::platform
