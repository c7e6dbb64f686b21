// The system's calls that transfer the bytes of files, for this thread, as they seldom behave. For
// programs that are linked with the calls' wrappers.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_TRANSFERS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_TRANSFERS_H_

#include <cstddef>
#include <cstdint>

namespace tarsio_test {

// While it lives, a call transfers `most` bytes at most. And where calls can be interrupted, every
// second one is, the opening of files included.
class SmallTransfers {
 public:
  explicit SmallTransfers(size_t most);
  SmallTransfers(const SmallTransfers&) = delete;
  SmallTransfers& operator=(const SmallTransfers&) = delete;
  ~SmallTransfers();
};

// While it lives, a call claims to have transferred what it was asked to, and does nothing.
class ClaimedTransfers {
 public:
  ClaimedTransfers();
  ClaimedTransfers(const ClaimedTransfers&) = delete;
  ClaimedTransfers& operator=(const ClaimedTransfers&) = delete;
  ~ClaimedTransfers();

  size_t Calls() const;
  uint64_t Bytes() const;  // in all calls
  size_t Largest() const;  // in one call
};

// For the wrappers: the most that a call transfers now, SIZE_MAX without a limit.
size_t MostOfATransfer();
// And whether a call for `size` bytes only claims to have been made. If so, it is counted.
bool ClaimTransfer(size_t size);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_TRANSFERS_H_
