#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>

#include <algorithm>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

namespace {

// The runtime's calls count in int; a multiple of the page size below it.
constexpr size_t kLargestTransfer = 0x40000000;

HANDLE HandleOf(int descriptor) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the runtime has handles as integers
  return reinterpret_cast<HANDLE>(::_get_osfhandle(descriptor));
}

// Above the three standard descriptors: if the host has closed one, what others write to it would
// land in the file. -1 if there is none.
int MoveAboveStandard(int descriptor) {
  constexpr int kLastStandard = 2;
  if (descriptor < 0 || descriptor > kLastStandard) return descriptor;
  const int moved = MoveAboveStandard(::_dup(descriptor));  // at most three levels deep
  ::_close(descriptor);
  if (moved >= 0) ::SetHandleInformation(HandleOf(moved), HANDLE_FLAG_INHERIT, 0);
  return moved;
}

int OpenShared(const std::wstring& path, int flags) {
  return MoveAboveStandard(
      ::_wsopen(path.c_str(), flags | _O_NOINHERIT, _SH_DENYNO, _S_IREAD | _S_IWRITE));
}

// A device or a pipe has no end to write at, though the runtime's seek succeeds on some of them.
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

size_t File::Read(char* buffer, size_t size) {
  size_t done = 0;
  while (done < size) {
    const auto chunk = static_cast<unsigned>(std::min(size - done, kLargestTransfer));
    const int count = ::_read(descriptor, buffer + done, chunk);
    if (count <= 0) break;
    done += static_cast<size_t>(count);
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

// A failing write only fails here.
int StandardOutputSignal() { return 0; }

ScopedSignalBlock::ScopedSignalBlock(int /*signal*/) : blocked(0) {}

void ScopedSignalBlock::DiscardAndUnblock() const {}

}  // namespace tarsio::platform
