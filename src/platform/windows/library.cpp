#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

void PinLibrary() {
  static const bool pinned = [] {
    HMODULE self = nullptr;
    return ::GetModuleHandleExW(
               GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
               reinterpret_cast<LPCWSTR>(&PinLibrary), &self) != 0;
  }();
  static_cast<void>(pinned);
}

bool ProcessIsEnding() {
  using ShutdownInProgress = BOOLEAN(WINAPI*)();
  // Looked up by the first call: at the end of the process that could wait for a lock that its
  // owner took along.
  static const ShutdownInProgress inProgress =
      LoadedFunction<ShutdownInProgress>("ntdll.dll", "RtlDllShutdownInProgress");
  return inProgress != nullptr && inProgress() != 0;
}

}  // namespace tarsio::platform
