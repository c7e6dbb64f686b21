#include "support/shared_library.h"

#include <dlfcn.h>

#include <utility>

namespace tarsio_test {

SharedLibrary::SharedLibrary(std::string file)
    : path(std::move(file)), handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {}

SharedLibrary::~SharedLibrary() = default;

bool SharedLibrary::IsLoaded() const {
  void* const again = ::dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (again != nullptr) ::dlclose(again);
  return again != nullptr;
}

void SharedLibrary::Unload() { ::dlclose(handle); }

SharedLibrary::AnyFunction SharedLibrary::Find(const std::string& name) const {
  return reinterpret_cast<AnyFunction>(::dlsym(handle, name.c_str()));
}

}  // namespace tarsio_test
