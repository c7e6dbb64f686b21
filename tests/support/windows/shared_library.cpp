#include "support/shared_library.h"

#include <windows.h>

#include <utility>

namespace tarsio_test {

bool IsLibraryLoaded(const std::string& file) {
  return ::GetModuleHandleA(file.c_str()) != nullptr;
}

SharedLibrary::SharedLibrary(std::string file)
    : path(std::move(file)), handle(::LoadLibraryA(path.c_str())) {}

SharedLibrary::~SharedLibrary() = default;

void SharedLibrary::Unload() { ::FreeLibrary(static_cast<HMODULE>(handle)); }

SharedLibrary::AnyFunction SharedLibrary::Find(const std::string& name) const {
  return reinterpret_cast<AnyFunction>(
      ::GetProcAddress(static_cast<HMODULE>(handle), name.c_str()));
}

}  // namespace tarsio_test
