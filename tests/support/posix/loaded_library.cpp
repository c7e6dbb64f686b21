#include "support/loaded_library.h"

#include <dlfcn.h>

namespace tarsio_test {

LoadedLibrary::LoadedLibrary(const std::string& file)
    : handle(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {}

LoadedLibrary::~LoadedLibrary() {
  if (handle != nullptr) ::dlclose(handle);
}

LoadedLibrary::Function LoadedLibrary::Find(const char* name) const {
  return reinterpret_cast<Function>(::dlsym(handle, name));
}

bool IsLibraryLoaded(const std::string& file) {
  void* const handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  ::dlclose(handle);
  return true;
}

}  // namespace tarsio_test
