#include "support/transfers.h"

#include <algorithm>

namespace tarsio_test {

namespace {

thread_local size_t mostOfATransfer = SIZE_MAX;
thread_local bool claiming = false;
thread_local size_t claims = 0;
thread_local uint64_t claimedBytes = 0;
thread_local size_t largestClaim = 0;
thread_local bool statFails = false;

}  // namespace

SmallTransfers::SmallTransfers(size_t most) { mostOfATransfer = most; }
SmallTransfers::~SmallTransfers() { mostOfATransfer = SIZE_MAX; }

ClaimedTransfers::ClaimedTransfers() {
  claims = 0;
  claimedBytes = 0;
  largestClaim = 0;
  claiming = true;
}
ClaimedTransfers::~ClaimedTransfers() { claiming = false; }

size_t ClaimedTransfers::Calls() const { return claims; }
uint64_t ClaimedTransfers::Bytes() const { return claimedBytes; }
size_t ClaimedTransfers::Largest() const { return largestClaim; }

FailingStat::FailingStat() { statFails = true; }
FailingStat::~FailingStat() { statFails = false; }

bool StatFails() { return statFails; }
size_t MostOfATransfer() { return mostOfATransfer; }

bool ClaimTransfer(size_t size) {
  if (!claiming) return false;
  ++claims;
  claimedBytes += size;
  largestClaim = std::max(largestClaim, size);
  return true;
}

}  // namespace tarsio_test
