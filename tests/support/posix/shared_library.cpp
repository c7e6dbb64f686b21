#include "support/shared_library.h"

#include <dlfcn.h>

#include <utility>

namespace tarsio_test {

bool IsLibraryLoaded(const std::string& file) {
  void* const handle = ::dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle == nullptr) return false;
  ::dlclose(handle);
  return true;
}

SharedLibrary::SharedLibrary(std::string file)
    : path(std::move(file)), handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {}

SharedLibrary::~SharedLibrary() = default;

void SharedLibrary::Unload() { ::dlclose(handle); }

SharedLibrary::AnyFunction SharedLibrary::Find(const std::string& name) const {
  return reinterpret_cast<AnyFunction>(::dlsym(handle, name.c_str()));
}

}  // namespace tarsio_test
