// A module whose initialiser uses the library while the host's thread does.

#include <chrono>

#include "meeting.h"

namespace {

// The host's thread may have to wait until the module is loaded, so this cannot wait for its
// return.
constexpr std::chrono::milliseconds kOverlap(50);

const bool used = [] {
  tarsio_test::Meeting& meeting = tarsio_test::TheMeeting();
  meeting.initialising.Open();
  meeting.begun.Wait();
  meeting.returned.WaitFor(kOverlap);
  tarsio_test::Use("the initialiser");
  return true;
}();

}  // namespace

extern "C" bool HasUsed() { return used; }
