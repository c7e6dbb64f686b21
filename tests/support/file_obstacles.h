// Two states in which files cannot be used.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_

#include <memory>
#include <string>

namespace tarsio_test {

// While it lives, the process can open no file; names and sizes can still be asked for.
class NoFreeFileHandles {
 public:
  NoFreeFileHandles();
  NoFreeFileHandles(const NoFreeFileHandles&) = delete;
  NoFreeFileHandles& operator=(const NoFreeFileHandles&) = delete;
  ~NoFreeFileHandles();

 private:
  struct State;
  const std::unique_ptr<State> state;
};

// An existing file that can be opened for writing, yet takes no byte.
class FileThatTakesNothing {
 public:
  FileThatTakesNothing();
  FileThatTakesNothing(const FileThatTakesNothing&) = delete;
  FileThatTakesNothing& operator=(const FileThatTakesNothing&) = delete;
  ~FileThatTakesNothing();

  // Its path for the library under test.
  std::string Text() const;

 private:
  struct State;
  const std::unique_ptr<State> state;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_
