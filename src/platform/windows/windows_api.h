// The Windows headers, without what the library does not need and without their macros.

#ifndef TARSIO_COMMON_SRC_PLATFORM_WINDOWS_WINDOWS_API_H_
#define TARSIO_COMMON_SRC_PLATFORM_WINDOWS_WINDOWS_API_H_

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <atomic>

namespace tarsio::platform {

// An export of a module that every process has loaded, or `fallback` if this version of the system
// does not have it. The first call looks it up and keeps it in `found`; racing calls find the same.
//
// A look-up may wait for a thread that is inside LoadLibrary(), whose modules may use this library
// in their initialisers. So the first call must not be made under a lock of the library, and no
// function-local static may be initialised by one.
template <typename F>
F LoadedFunction(std::atomic<F>& found, const char* module, const char* name, F fallback) {
  F function = found.load(std::memory_order_relaxed);
  if (function != nullptr) return function;
  const HMODULE handle = ::GetModuleHandleA(module);
  // Through void(*)(), since a cast between two function types is taken for a mistake.
  if (handle != nullptr) {
    function = reinterpret_cast<F>(reinterpret_cast<void (*)()>(::GetProcAddress(handle, name)));
  }
  if (function == nullptr) function = fallback;
  found.store(function, std::memory_order_relaxed);
  return function;
}

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_WINDOWS_WINDOWS_API_H_
