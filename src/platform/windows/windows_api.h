// The Windows headers, without the parts that the library does not need and without min and max.

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

// Returns an export of a module that every process has loaded, or `fallback` if this version of the
// system does not have it. The first call looks it up and caches it in `found`; concurrent first
// calls get the same result.
//
// The look-up may wait for a thread that is inside LoadLibrary(), and that thread may be running an
// initialiser that uses this library. So the first call must not be made while holding a lock of
// the library, nor to initialise a function-local static.
template <typename F>
F LoadedFunction(std::atomic<F>& found, const char* module, const char* name, F fallback) {
  F function = found.load(std::memory_order_relaxed);
  if (function != nullptr) return function;
  const HMODULE handle = ::GetModuleHandleA(module);
  // Cast through void(*)() to avoid the warning about incompatible function types.
  if (handle != nullptr) {
    function = reinterpret_cast<F>(reinterpret_cast<void (*)()>(::GetProcAddress(handle, name)));
  }
  if (function == nullptr) function = fallback;
  found.store(function, std::memory_order_relaxed);
  return function;
}

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_WINDOWS_WINDOWS_API_H_
