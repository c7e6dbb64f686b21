#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/platform.h"
#include "platform/posix/native_path.h"

namespace tarsio::platform {

namespace {

// The most that one call of read(2) or write(2) transfers.
constexpr size_t kLargestTransfer = 0x7ffff000;

int OpenNative(const std::wstring& path, int flags) {
  const std::string native = NativePath(path);
  for (;;) {
    const int descriptor = ::open(native.c_str(), flags | O_CLOEXEC, 0666);
    if (descriptor >= 0 || errno != EINTR) return descriptor;
  }
}

}  // namespace

File File::OpenForReading(const std::wstring& path) { return File(OpenNative(path, O_RDONLY)); }

// Text and binary files are the same here.
File File::OpenForWriting(const std::wstring& path, const WriteMode& mode) {
  int flags = mode.alsoRead ? O_RDWR : O_WRONLY;
  if (!mode.mustExist) flags |= O_CREAT;
  if (mode.truncate) flags |= O_TRUNC;
  if (mode.append) flags |= O_APPEND;
  const int descriptor = OpenNative(path, flags);
  if (descriptor >= 0 && mode.atEnd) ::lseek(descriptor, 0, SEEK_END);
  return File(descriptor);
}

File::~File() {
  if (IsOpen()) ::close(descriptor);
}

size_t File::Read(char* buffer, size_t size) {
  size_t done = 0;
  while (done < size) {
    const ssize_t count =
        ::read(descriptor, buffer + done, std::min(size - done, kLargestTransfer));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<size_t>(count);
  }
  return done;
}

void File::Write(const char* data, size_t size) {
  while (size > 0) {
    const ssize_t count = ::write(descriptor, data, std::min(size, kLargestTransfer));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    data += count;
    size -= static_cast<size_t>(count);
  }
}

}  // namespace tarsio::platform
