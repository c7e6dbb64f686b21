// A shared library that is loaded and unloaded at run time.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_

#include <string>

namespace tarsio_test {

class SharedLibrary {
 public:
  // Check IsLoaded() for success.
  explicit SharedLibrary(std::string file);  // by its path
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;
  ~SharedLibrary();

  // Whether the process has the file loaded, by this object or otherwise.
  bool IsLoaded() const;

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
