// Libraries that are loaded and unloaded while the program runs.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_LOADED_LIBRARY_H_
#define TARSIO_COMMON_TESTS_SUPPORT_LOADED_LIBRARY_H_

#include <string>

namespace tarsio_test {

// A library that is loaded as long as the object lives, with the libraries that it needs.
class LoadedLibrary {
 public:
  using Function = void (*)();

  explicit LoadedLibrary(const std::string& file);
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;
  ~LoadedLibrary();

  bool IsOpen() const { return handle != nullptr; }
  // An exported function, to be cast to its type. Null if there is none of that name.
  Function Find(const char* name) const;

 private:
  void* const handle;
};

// Whether some code of the process keeps the library loaded.
bool IsLibraryLoaded(const std::string& file);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_LOADED_LIBRARY_H_
