#include <atomic>
#include <exception>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

namespace {

using ShutdownInProgress = BOOLEAN(WINAPI*)();

// NOLINTBEGIN(*-non-const-global-variables): written by the first call
std::atomic<bool> isPinned{false};
std::atomic<ShutdownInProgress> shutdownInProgress{nullptr};
// NOLINTEND(*-non-const-global-variables)

BOOLEAN WINAPI CannotTell() { return FALSE; }

bool IsShuttingDown() noexcept {
  const ShutdownInProgress inProgress = LoadedFunction<ShutdownInProgress>(
      shutdownInProgress, "ntdll.dll", "RtlDllShutdownInProgress", CannotTell);
  return inProgress() != 0;
}

// Looked up when the library is loaded: at process exit the look-up could wait for a lock that a
// killed thread held.
[[maybe_unused]] const bool wasShuttingDown = IsShuttingDown();

// For the same reason: this creates the C++ runtime's key for thread-local data, which otherwise
// the flush of std::cout at process exit might create. Volatile, so that the call is not optimised
// away.
[[maybe_unused]] const volatile int uncaughtExceptions = std::uncaught_exceptions();

}  // namespace

void PinLibrary() {
  if (isPinned.load(std::memory_order_relaxed)) return;
  HMODULE self = nullptr;
  isPinned =
      ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                           reinterpret_cast<LPCWSTR>(&PinLibrary), &self) != 0;
}

bool ProcessIsEnding() { return IsShuttingDown(); }

int ForkCount() { return 0; }

bool ThreadsMayBeGone() { return ProcessIsEnding(); }

}  // namespace tarsio::platform
