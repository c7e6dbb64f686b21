#include "support/transfers.h"

#include <io.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace {

using tarsio_test::ClaimTransfer;

unsigned Limited(unsigned size) {
  return static_cast<unsigned>(std::min<size_t>(size, tarsio_test::MostOfATransfer()));
}

}  // namespace

// The runtime's functions are called by pointers. The linker's --wrap option redirects the pointer
// __imp_NAME to __wrap___imp_NAME; __real___imp_NAME is the original.
extern "C" {

extern int (*__real___imp__read)(int descriptor, void* buffer, unsigned size);
static int WrappedRead(int descriptor, void* buffer, unsigned size) {
  if (ClaimTransfer(size)) return static_cast<int>(size);
  return __real___imp__read(descriptor, buffer, Limited(size));
}
int (*__wrap___imp__read)(int descriptor, void* buffer, unsigned size) = WrappedRead;

extern int (*__real___imp__write)(int descriptor, const void* data, unsigned size);
static int WrappedWrite(int descriptor, const void* data, unsigned size) {
  if (ClaimTransfer(size)) return static_cast<int>(size);
  return __real___imp__write(descriptor, data, Limited(size));
}
int (*__wrap___imp__write)(int descriptor, const void* data, unsigned size) = WrappedWrite;

extern int (*__real___imp__wstat64)(const wchar_t* path, struct _stat64* status);
static int WrappedStat(const wchar_t* path, struct _stat64* status) {
  if (!tarsio_test::StatFails()) return __real___imp__wstat64(path, status);
  errno = ENOENT;
  return -1;
}
int (*__wrap___imp__wstat64)(const wchar_t* path, struct _stat64* status) = WrappedStat;

}  // extern "C"
