// Conditions in which files cannot be used.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_

#include <cstdint>
#include <memory>
#include <string>

namespace tarsio_test {

// In its scope, the process cannot open files; names and sizes can still be queried.
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

// A file that can be opened for writing but accepts no data.
class FileThatTakesNothing {
 public:
  FileThatTakesNothing();
  FileThatTakesNothing(const FileThatTakesNothing&) = delete;
  FileThatTakesNothing& operator=(const FileThatTakesNothing&) = delete;
  ~FileThatTakesNothing();

  // Its path, for the library under test.
  std::string Text() const;

 private:
  struct State;
  const std::unique_ptr<State> state;
};

// Limits the size of the process's files to `bytes` for its lifetime, as if the disk were full.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(uint64_t bytes);
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit();

  // The limit in effect: UINT64_MAX on systems without such a limit.
  uint64_t Bytes() const;

 private:
  struct State;
  const std::unique_ptr<State> state;
};

// In its scope, the process cannot read the file `name` in the current directory, and can write
// it only if `writable`.
class ForbiddenFile {
 public:
  ForbiddenFile(const std::string& name, bool writable);
  ForbiddenFile(const ForbiddenFile&) = delete;
  ForbiddenFile& operator=(const ForbiddenFile&) = delete;
  ~ForbiddenFile();

 private:
  struct State;
  const std::unique_ptr<State> state;
};

// In its scope, the process has no permission for the directory `name` in the current directory
// and its content, except to read it if `readable`. Not every system enforces that.
class ForbiddenDirectory {
 public:
  ForbiddenDirectory(const std::string& name, bool readable);
  ForbiddenDirectory(const ForbiddenDirectory&) = delete;
  ForbiddenDirectory& operator=(const ForbiddenDirectory&) = delete;
  ~ForbiddenDirectory();

 private:
  struct State;
  const std::unique_ptr<State> state;
};

// Cannot be undone.
void CloseStandardInput();
void CloseStandardOutput();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_
