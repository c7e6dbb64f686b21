// A plugin whose initializer uses the library concurrently with a thread of the host.

#include <chrono>

#include "meeting.h"

namespace {

// The host's thread may block until the plugin is loaded, so do not wait for its return.
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
