#include "support/loaded_library.h"

#include <windows.h>

namespace tarsio_test {

LoadedLibrary::LoadedLibrary(const std::string& file) : handle(::LoadLibraryA(file.c_str())) {}

LoadedLibrary::~LoadedLibrary() {
  if (handle != nullptr) ::FreeLibrary(static_cast<HMODULE>(handle));
}

LoadedLibrary::Function LoadedLibrary::Find(const char* name) const {
  return reinterpret_cast<Function>(::GetProcAddress(static_cast<HMODULE>(handle), name));
}

bool IsLibraryLoaded(const std::string& file) {
  return ::GetModuleHandleA(file.c_str()) != nullptr;
}

}  // namespace tarsio_test
