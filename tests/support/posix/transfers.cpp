#include "support/transfers.h"

#include <fcntl.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>

namespace {

thread_local size_t mostOfACall = SIZE_MAX;
thread_local bool claiming = false;
thread_local uint64_t claimedBytes = 0;
thread_local size_t largestClaim = 0;

// Whether the call that is under way comes to nothing.
bool IsInterrupted() {
  thread_local bool interrupted = false;
  if (mostOfACall == SIZE_MAX) return false;
  interrupted = !interrupted;
  if (interrupted) errno = EINTR;
  return interrupted;
}

template <typename Call>
ssize_t Transfer(size_t size, Call call) {
  if (claiming) {
    claimedBytes += size;
    largestClaim = std::max(largestClaim, size);
    return static_cast<ssize_t>(size);
  }
  return IsInterrupted() ? -1 : call(std::min(size, mostOfACall));
}

}  // namespace

namespace tarsio_test {

SmallTransfers::SmallTransfers(size_t most) { mostOfACall = most; }
SmallTransfers::~SmallTransfers() { mostOfACall = SIZE_MAX; }

ClaimedTransfers::ClaimedTransfers() {
  claimedBytes = 0;
  largestClaim = 0;
  claiming = true;
}
ClaimedTransfers::~ClaimedTransfers() { claiming = false; }

uint64_t ClaimedTransfers::Bytes() const { return claimedBytes; }
size_t ClaimedTransfers::Largest() const { return largestClaim; }

}  // namespace tarsio_test

// The linker's --wrap option leads every call of NAME to __wrap_NAME, and calls of __real_NAME to
// what NAME was.
extern "C" {

int __real_open(const char* name, int flags, mode_t mode);
int __wrap_open(const char* name, int flags, mode_t mode) {
  return IsInterrupted() ? -1 : __real_open(name, flags, mode);
}

ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  return Transfer(size, [=](size_t most) { return __real_read(descriptor, buffer, most); });
}

ssize_t __real_write(int descriptor, const void* data, size_t size);
ssize_t __wrap_write(int descriptor, const void* data, size_t size) {
  return Transfer(size, [=](size_t most) { return __real_write(descriptor, data, most); });
}

}  // extern "C"
