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

namespace tarsio::platform {

// An export of a module that every process has loaded, as a function of type F. Null if this
// version of the system does not have it. No reference is taken.
template <typename F>
F LoadedFunction(const char* module, const char* name) {
  const HMODULE handle = ::GetModuleHandleA(module);
  if (handle == nullptr) return nullptr;
  // Through void(*)(), since a cast between two function types is taken for a mistake.
  return reinterpret_cast<F>(reinterpret_cast<void (*)()>(::GetProcAddress(handle, name)));
}

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_WINDOWS_WINDOWS_API_H_
