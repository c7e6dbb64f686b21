#include "support/transfers.h"

#include <fcntl.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>

namespace {

using tarsio_test::ClaimTransfer;
using tarsio_test::MostOfATransfer;

// Returns whether the current call has to fail with EINTR.
bool IsInterrupted() {
  thread_local bool interrupted = false;
  interrupted = !interrupted && MostOfATransfer() != SIZE_MAX;
  if (interrupted) errno = EINTR;
  return interrupted;
}

// Returns whether the current transfer has to fail.
bool Fails() {
  if (IsInterrupted()) return true;
  if (MostOfATransfer() == 0) errno = EIO;
  return MostOfATransfer() == 0;
}

}  // namespace

// The linker's --wrap option redirects calls of NAME to __wrap_NAME; __real_NAME is the original.
extern "C" {

int __real_open(const char* name, int flags, mode_t mode);
int __wrap_open(const char* name, int flags, mode_t mode) {
  return IsInterrupted() ? -1 : __real_open(name, flags, mode);
}

ssize_t __real_read(int descriptor, void* buffer, size_t size);
ssize_t __wrap_read(int descriptor, void* buffer, size_t size) {
  if (ClaimTransfer(size)) return static_cast<ssize_t>(size);
  return Fails() ? -1 : __real_read(descriptor, buffer, std::min(size, MostOfATransfer()));
}

ssize_t __real_write(int descriptor, const void* data, size_t size);
ssize_t __wrap_write(int descriptor, const void* data, size_t size) {
  if (ClaimTransfer(size)) return static_cast<ssize_t>(size);
  return Fails() ? -1 : __real_write(descriptor, data, std::min(size, MostOfATransfer()));
}

}  // extern "C"
