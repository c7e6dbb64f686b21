#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>

#include "platform/platform.h"
#include "platform/posix/native_path.h"

namespace tarsio::platform {

namespace {

// The most that one call of read(2) or write(2) transfers.
constexpr size_t kLargestTransfer = 0x7ffff000;

// Above the three standard descriptors: if the host has closed one, what others write to it would
// land in the file. -1 if there is none.
int MoveAboveStandard(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  ::close(descriptor);
  return moved;
}

// Waits neither for the other end of a FIFO nor for a modem, and a terminal does not become the
// controlling one.
int OpenNative(const std::wstring& path, int flags) {
  const std::string native = NativePath(path);
  for (;;) {
    const int descriptor = ::open(native.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (descriptor >= 0 || errno != EINTR) return MoveAboveStandard(descriptor);
  }
}

mode_t KindOf(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

// Reading and writing may wait, unlike opening.
void LetWait(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

// A device or a pipe has no end to write at, though lseek() succeeds on some devices.
bool SeekToEnd(int descriptor, mode_t kind) {
  return kind != S_IFCHR && ::lseek(descriptor, 0, SEEK_END) >= 0;
}

// Keeps the signals of write() from ending the process: that of a pipe whose reader has left, and
// that of a file that gets too large for the process's limit. write() then fails, and no more.
class ScopedNoWriteSignal {
 public:
  explicit ScopedNoWriteSignal(int descriptor) : signal(SignalOf(descriptor)) {
    sigset_t pending;
    if (signal == 0 || ::sigpending(&pending) != 0) return;
    ::sigemptyset(&blocked);
    ::sigaddset(&blocked, signal);
    // One that is pending already is not ours to take.
    active = ::sigismember(&pending, signal) == 0 &&
             ::pthread_sigmask(SIG_BLOCK, &blocked, &before) == 0;
  }
  ScopedNoWriteSignal(const ScopedNoWriteSignal&) = delete;
  ScopedNoWriteSignal& operator=(const ScopedNoWriteSignal&) = delete;
  ~ScopedNoWriteSignal() {
    if (!active) return;
    constexpr timespec kNow{};
    int taken = 0;
    do {
      taken = ::sigtimedwait(&blocked, nullptr, &kNow);
    } while (taken < 0 && errno == EINTR);
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

 private:
  static int SignalOf(int descriptor) {
    if (KindOf(descriptor) != S_IFREG) return SIGPIPE;
    rlimit limit{};
    const bool limited = ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
    return limited ? SIGXFSZ : 0;
  }

  const int signal;
  sigset_t blocked{};
  sigset_t before{};
  bool active = false;
};

}  // namespace

File File::OpenForReading(const std::wstring& path) {
  const int descriptor = OpenNative(path, O_RDONLY);
  if (descriptor < 0 || KindOf(descriptor) == S_IFREG) return File(descriptor);
  // The caller has seen a file's size, but the name is that of something else by now.
  ::close(descriptor);
  return File(-1);
}

// Text and binary files are the same here.
File File::OpenForWriting(const std::wstring& path, const WriteMode& mode) {
  int flags = mode.alsoRead ? O_RDWR : O_WRONLY;
  if (!mode.mustExist) flags |= O_CREAT;
  if (mode.truncate) flags |= O_TRUNC;
  if (mode.append) flags |= O_APPEND;
  const int descriptor = OpenNative(path, flags);
  if (descriptor < 0) return File(-1);
  const mode_t kind = KindOf(descriptor);
  // A FIFO that is open for reading, too, has a reader that never reads.
  if ((mode.alsoRead && kind == S_IFIFO) || (mode.atEnd && !SeekToEnd(descriptor, kind))) {
    ::close(descriptor);
    return File(-1);
  }
  if (kind != S_IFREG) LetWait(descriptor);
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
  const ScopedNoWriteSignal noSignal(descriptor);
  while (size > 0) {
    const ssize_t count = ::write(descriptor, data, std::min(size, kLargestTransfer));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    data += count;
    size -= static_cast<size_t>(count);
  }
}

}  // namespace tarsio::platform
