// A call on a separate thread, for calls that may block forever.

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

// If the call never returns, its thread sleeps until the process ends. Everything it uses must
// therefore be owned by the callable, for example by shared pointers.
class BackgroundCall {
 public:
  explicit BackgroundCall(std::function<void()> body) : call(std::make_shared<Call>()) {
    call->body = std::move(body);
    Keep(call);
    call->thread = std::thread([call = call] {
      call->started.Open();
      call->body();
      call->body = nullptr;
      // The thread detaches itself: in mingw-w64's thread library, detaching a thread that is about
      // to end fails.
      call->threadIsSet.Wait();
      call->thread.detach();
      call->returned.Open();
    });
    call->threadIsSet.Open();
  }

  // Waits up to `limit` and returns whether the call has returned and released everything it used.
  bool ReturnsWithin(std::chrono::milliseconds limit = kTestTimeout) {
    return call->returned.WaitFor(limit);
  }

  // Watches the call for a while and returns whether it is still running.
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

  // Keeps the call reachable, so that a leak checker ignores what a sleeping thread uses.
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
