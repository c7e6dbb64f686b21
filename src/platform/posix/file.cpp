#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <mutex>

#include "platform/platform.h"
#include "platform/posix/native_path.h"

namespace tarsio::platform {

namespace {

// Linux transfers at most this many bytes in one read(2) or write(2).
constexpr size_t kLargestTransfer = 0x7ffff000;

// Returns true if the host has closed a standard descriptor. A placeholder that another thread has
// opened there counts as closed.
bool StandardDescriptorIsFree() {
  std::array<pollfd, 3> standard{
      {{STDIN_FILENO, 0, 0}, {STDOUT_FILENO, 0, 0}, {STDERR_FILENO, 0, 0}}};
  const int events = ::poll(standard.data(), standard.size(), 0);
  if (events <= 0) return events < 0;  // fails if the descriptor limit is below three
  return std::any_of(standard.begin(), standard.end(),
                     [](const pollfd& each) { return (each.revents & POLLNVAL) != 0; });
}

// Keeps a file from becoming a standard descriptor that the host has closed, even for a moment:
// other threads' output would end up in the file. Occupies the free standard descriptors with
// placeholders, which cannot be read or written, as if they were still closed.
class ScopedPlaceholders {
 public:
  ScopedPlaceholders() {
    if (!StandardDescriptorIsFree()) return;
    lock = std::unique_lock<std::mutex>(mutex);
    while (count < placeholders.size()) {  // the host may close one at any time
      const int descriptor = ::open("/", O_PATH | O_CLOEXEC);
      if (descriptor < 0) return;  // opening the file will fail, too
      if (descriptor > STDERR_FILENO) {
        ::close(descriptor);
        return;
      }
      placeholders[count++] = descriptor;
    }
  }
  ScopedPlaceholders(const ScopedPlaceholders&) = delete;
  ScopedPlaceholders& operator=(const ScopedPlaceholders&) = delete;
  ~ScopedPlaceholders() {
    // The host may have replaced a placeholder, for example with dup2().
    while (count > 0) {
      const int descriptor = placeholders[--count];
      const int flags = ::fcntl(descriptor, F_GETFL);
      if (flags >= 0 && (flags & O_PATH) != 0) ::close(descriptor);
    }
  }

 private:
  // NOLINTNEXTLINE(*-non-const-global-variables): held while placeholders are open
  static inline std::mutex mutex;

  std::unique_lock<std::mutex> lock;
  std::array<int, 3> placeholders{};
  size_t count = 0;
};

// Does not wait for the other end of a FIFO or for a modem. Opening a terminal does not make it the
// controlling one.
int OpenNative(const std::wstring& path, int flags) {
  const std::string native = NativePath(path);
  const ScopedPlaceholders placeholders;
  for (;;) {
    const int descriptor = ::open(native.c_str(), flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
    if (descriptor >= 0 || errno != EINTR) return descriptor;
  }
}

mode_t TypeOfDescriptor(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

// Only opening must not block; reading and writing may.
void LetWait(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  ::fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
}

// Devices and pipes have no end to seek to, although lseek() succeeds on some devices.
bool SeekToEnd(int descriptor, mode_t type) {
  return type != S_IFCHR && ::lseek(descriptor, 0, SEEK_END) >= 0;
}

// Returns the signal that write() raises when a pipe's reader is gone, or when a file would exceed
// the process's size limit. 0 if none.
int WriteSignalOf(mode_t type) {
  if (type == S_IFIFO || type == S_IFSOCK) return SIGPIPE;
  rlimit limit{};
  const bool limited =
      type == S_IFREG && ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY;
  return limited ? SIGXFSZ : 0;
}

}  // namespace

File File::OpenForReading(const std::wstring& path) {
  const int descriptor = OpenNative(path, O_RDONLY);
  if (descriptor < 0 || TypeOfDescriptor(descriptor) == S_IFREG) return File(descriptor);
  // The caller has checked that this is a file, but it has been replaced since.
  ::close(descriptor);
  return File(-1);
}

// Text and binary mode are the same here.
File File::OpenForWriting(const std::wstring& path, const WriteMode& mode) {
  int flags = mode.alsoRead ? O_RDWR : O_WRONLY;
  if (!mode.mustExist) flags |= O_CREAT;
  if (mode.truncate) flags |= O_TRUNC;
  if (mode.append) flags |= O_APPEND;
  const int descriptor = OpenNative(path, flags);
  if (descriptor < 0) return File(-1);
  const mode_t type = TypeOfDescriptor(descriptor);
  // Opened for reading as well, a FIFO would be its own reader, and writes would block once it is
  // full.
  if ((mode.alsoRead && type == S_IFIFO) || (mode.atEnd && !SeekToEnd(descriptor, type))) {
    ::close(descriptor);
    return File(-1);
  }
  if (type != S_IFREG) LetWait(descriptor);
  return File(descriptor, WriteSignalOf(type));
}

File::~File() {
  if (IsOpen()) ::close(descriptor);
}

size_t File::Read(char* buffer, size_t size, size_t expected) {
  size_t done = 0;
  while (done < size) {
    const size_t request = std::min(size - done, kLargestTransfer);
    const ssize_t count = ::read(descriptor, buffer + done, request);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<size_t>(count);
    if (done == expected && static_cast<size_t>(count) < request) break;
  }
  return done;
}

void File::Write(const char* data, size_t size) {
  const ScopedSignalBlock noSignal(writeSignal);
  while (size > 0) {
    const ssize_t count = ::write(descriptor, data, std::min(size, kLargestTransfer));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    data += count;
    size -= static_cast<size_t>(count);
  }
}

int StandardOutputSignal() {
  // fstat() takes about as long as writing a line.
  constexpr int64_t kPeriodMs = 100;
  constexpr int64_t kTypes = S_IFMT + 1;
  // The type and the period in which it was read, in one value: threads share it without a lock.
  // NOLINTNEXTLINE(*-non-const-global-variables): a cache shared by all threads
  static std::atomic<int64_t> answer{-1};
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  const int64_t period = (time.tv_sec * 1000 + time.tv_nsec / 1000000) / kPeriodMs;
  const int64_t known = answer.load(std::memory_order_relaxed);
  if (known >= 0 && known / kTypes == period)
    return WriteSignalOf(static_cast<mode_t>(known % kTypes));
  const mode_t type = TypeOfDescriptor(STDOUT_FILENO);
  answer.store(period * kTypes + type, std::memory_order_relaxed);
  return WriteSignalOf(type);
}

ScopedSignalBlock::ScopedSignalBlock(int signal) {
  if (signal == 0) return;
  sigset_t set;
  sigset_t before;
  ::sigemptyset(&set);
  ::sigaddset(&set, signal);
  // If the host blocks the signal itself, leave it to the host.
  if (::pthread_sigmask(SIG_BLOCK, &set, &before) == 0 && ::sigismember(&before, signal) == 0)
    blocked = signal;
}

void ScopedSignalBlock::DiscardAndUnblock() const {
  constexpr timespec kNow{};
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, blocked);
  int taken = 0;
  do {
    taken = ::sigtimedwait(&set, nullptr, &kNow);
  } while (taken < 0 && errno == EINTR);
  ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

}  // namespace tarsio::platform
