// Makes the system's file calls of this thread behave unusually. For programs that are linked with
// the calls' wrappers.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_TRANSFERS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_TRANSFERS_H_

#include <cstddef>
#include <cstdint>

namespace tarsio_test {

// In its scope, a read or write call transfers at most `most` bytes. Where calls can be
// interrupted, every second one is, including open calls.
class SmallTransfers {
 public:
  explicit SmallTransfers(size_t most);
  SmallTransfers(const SmallTransfers&) = delete;
  SmallTransfers& operator=(const SmallTransfers&) = delete;
  ~SmallTransfers();
};

// In its scope, a call reports a full transfer but does nothing.
class ClaimedTransfers {
 public:
  ClaimedTransfers();
  ClaimedTransfers(const ClaimedTransfers&) = delete;
  ClaimedTransfers& operator=(const ClaimedTransfers&) = delete;
  ~ClaimedTransfers();

  size_t Calls() const;
  uint64_t Bytes() const;  // of all calls
  size_t Largest() const;  // of a single call
};

// In its scope, the runtime's stat fails. Has no effect on systems on which it accepts every path.
class FailingStat {
 public:
  FailingStat();
  FailingStat(const FailingStat&) = delete;
  FailingStat& operator=(const FailingStat&) = delete;
  ~FailingStat();
};

// For the wrappers: whether stat has to fail.
bool StatFails();
// For the wrappers: the current limit of a transfer, SIZE_MAX without a limit.
size_t MostOfATransfer();
// For the wrappers: whether a call for `size` bytes must only report success. Counts it if so.
bool ClaimTransfer(size_t size);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_TRANSFERS_H_
