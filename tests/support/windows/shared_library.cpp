#include "support/shared_library.h"

#include <windows.h>

#include <utility>

namespace tarsio_test {

SharedLibrary::SharedLibrary(std::string file)
    : path(std::move(file)), handle(::LoadLibraryA(path.c_str())) {}

SharedLibrary::~SharedLibrary() = default;

bool SharedLibrary::IsLoaded() const { return ::GetModuleHandleA(path.c_str()) != nullptr; }

void SharedLibrary::Unload() { ::FreeLibrary(static_cast<HMODULE>(handle)); }

SharedLibrary::AnyFunction SharedLibrary::Find(const std::string& name) const {
  return reinterpret_cast<AnyFunction>(
      ::GetProcAddress(static_cast<HMODULE>(handle), name.c_str()));
}

}  // namespace tarsio_test
