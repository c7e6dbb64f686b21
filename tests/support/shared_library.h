// Shared libraries that are loaded and unloaded at run time.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_

#include <string>

namespace tarsio_test {

// Whether the process has the library loaded, whoever brought it.
bool IsLibraryLoaded(const std::string& file);

// A library and those that it needs.
class SharedLibrary {
 public:
  // Check IsLoaded() for success.
  explicit SharedLibrary(std::string file);
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;
  ~SharedLibrary();

  bool IsLoaded() const { return IsLibraryLoaded(path); }

  // An export, as a pointer to a function of type F. Null if there is none of that name.
  template <typename F>
  F* Function(const std::string& name) const {
    return reinterpret_cast<F*>(Find(name));
  }

  // Gives back this object's hold on it. The destructor does not: a library whose code may still
  // run is to be unloaded only where that is meant.
  void Unload();

 private:
  using AnyFunction = void (*)();

  AnyFunction Find(const std::string& name) const;

  const std::string path;
  void* handle;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_
