#include <pthread.h>

#include <atomic>

#include "platform/platform.h"

namespace tarsio::platform {

namespace {

// NOLINTNEXTLINE(*-non-const-global-variables): changed by each fork
std::atomic<int> forkCount{0};

// Registered while the library is loaded: pthread_atfork() must not be called under a lock that
// another module's handler may want.
[[maybe_unused]] const int registered = ::pthread_atfork(nullptr, nullptr, [] { ++forkCount; });

}  // namespace

// The shared object is linked with -z nodelete, so it stays loaded anyway.
void PinLibrary() {}

// The other threads run on while the statics are destroyed.
bool ProcessIsEnding() { return false; }

int ForkCount() { return forkCount.load(std::memory_order_relaxed); }

}  // namespace tarsio::platform
