#include "support/failing_stat.h"

#include <sys/stat.h>

#include <cerrno>

namespace {

thread_local bool failing = false;

}  // namespace

// The runtime's function is called by a pointer, which the linker's --wrap option replaces.
extern "C" {

extern int (*__real___imp__wstat64)(const wchar_t* path, struct _stat64* status);
static int WrappedStat(const wchar_t* path, struct _stat64* status) {
  if (!failing) return __real___imp__wstat64(path, status);
  errno = ENOENT;
  return -1;
}
int (*__wrap___imp__wstat64)(const wchar_t* path, struct _stat64* status) = WrappedStat;

}  // extern "C"

namespace tarsio_test {

FailingStat::FailingStat() { failing = true; }
FailingStat::~FailingStat() { failing = false; }

}  // namespace tarsio_test
