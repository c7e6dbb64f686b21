#include "support/transfers.h"

#include <io.h>

#include <algorithm>

namespace {

thread_local size_t mostOfACall = SIZE_MAX;
thread_local bool claiming = false;
thread_local uint64_t claimedBytes = 0;
thread_local size_t largestClaim = 0;

template <typename Call>
int Transfer(unsigned size, Call call) {
  if (claiming) {
    claimedBytes += size;
    largestClaim = std::max<size_t>(largestClaim, size);
    return static_cast<int>(size);
  }
  return call(static_cast<unsigned>(std::min<size_t>(size, mostOfACall)));
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

// The runtime's functions are called through pointers, which the linker's --wrap option leads to
// these.
extern "C" {

extern int (*__real___imp__read)(int descriptor, void* buffer, unsigned size);
int WrappedRead(int descriptor, void* buffer, unsigned size) {
  return Transfer(size,
                  [=](unsigned most) { return __real___imp__read(descriptor, buffer, most); });
}
int (*__wrap___imp__read)(int descriptor, void* buffer, unsigned size) = WrappedRead;

extern int (*__real___imp__write)(int descriptor, const void* data, unsigned size);
int WrappedWrite(int descriptor, const void* data, unsigned size) {
  return Transfer(size, [=](unsigned most) { return __real___imp__write(descriptor, data, most); });
}
int (*__wrap___imp__write)(int descriptor, const void* data, unsigned size) = WrappedWrite;

}  // extern "C"
