// A call on a thread of its own, for calls that may last for ever.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_BACKGROUND_CALL_H_
#define TARSIO_COMMON_TESTS_SUPPORT_BACKGROUND_CALL_H_

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "support/gate.h"

namespace tarsio_test {

// A call that never returns is left behind: its thread sleeps until the process ends. Whatever the
// call uses must therefore belong to the callable, by shared pointers; it is kept as long.
class BackgroundCall {
 public:
  explicit BackgroundCall(std::function<void()> body) : call(std::make_shared<Call>()) {
    call->body = std::move(body);
    Keep(call);
    call->thread = std::thread([call = call] {
      call->started.Open();
      call->body();
      call->body = nullptr;
      // By the thread itself: detaching one that may be about to end goes wrong in the thread
      // library of mingw-w64.
      call->threadIsSet.Wait();
      call->thread.detach();
      call->returned.Open();
    });
    call->threadIsSet.Open();
  }

  // Waits up to `limit`; whether the call has returned and let go of all that it used.
  bool ReturnsWithin(std::chrono::milliseconds limit = kTestTimeout) {
    return call->returned.WaitFor(limit);
  }

  // Watches the running call for a while; whether it has not returned.
  bool StaysBlocked(std::chrono::milliseconds watch = kBlockedCheck) {
    return call->started.WaitFor() && !call->returned.WaitFor(watch);
  }

 private:
  struct Call {
    std::function<void()> body;
    std::thread thread;
    Gate threadIsSet;
    Gate started;
    Gate returned;
  };

  // Reachable for good, so that a leak check does not count what a sleeping thread uses.
  static void Keep(const std::shared_ptr<Call>& call) {
    static auto* const mutex = new std::mutex;
    static auto* const calls = new std::vector<std::shared_ptr<Call>>;
    const std::lock_guard<std::mutex> lock(*mutex);
    calls->push_back(call);
  }

  const std::shared_ptr<Call> call;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_BACKGROUND_CALL_H_
