// Shared libraries that are loaded and unloaded at run time.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_

#include <string>

namespace tarsio_test {

// Returns whether the process has loaded the library, by whatever means.
bool IsLibraryLoaded(const std::string& file);

// A shared library, loaded with its dependencies.
class SharedLibrary {
 public:
  // Check IsLoaded() for success.
  explicit SharedLibrary(std::string file);
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;
  ~SharedLibrary();

  bool IsLoaded() const { return IsLibraryLoaded(path); }

  // Returns an exported function as a pointer of type F, or null if there is no such export.
  template <typename F>
  F* Function(const std::string& name) const {
    return reinterpret_cast<F*>(Find(name));
  }

  // Drops this object's reference to the library. The destructor does not, since the library's code
  // may still be running.
  void Unload();

 private:
  using AnyFunction = void (*)();

  AnyFunction Find(const std::string& name) const;

  const std::string path;
  void* handle;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SHARED_LIBRARY_H_
