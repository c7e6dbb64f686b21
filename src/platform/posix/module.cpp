#include <pthread.h>

#include <atomic>

#include "platform/platform.h"

namespace tarsio::platform {

namespace {

// NOLINTNEXTLINE(*-non-const-global-variables): incremented in each forked child
std::atomic<int> forkCount{0};

// Registered when the library is loaded: pthread_atfork() must not be called while holding a lock
// that another module's handler may take.
[[maybe_unused]] const int registered = ::pthread_atfork(nullptr, nullptr, [] { ++forkCount; });

}  // namespace

// The shared object is linked with -z nodelete, so it is never unloaded.
void PinLibrary() {}

// Other threads keep running while statics are destroyed.
bool ProcessIsEnding() { return false; }

int ForkCount() { return forkCount.load(std::memory_order_relaxed); }

bool ThreadsMayBeGone() { return ForkCount() > 0; }

}  // namespace tarsio::platform
