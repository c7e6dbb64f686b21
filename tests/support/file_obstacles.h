// Conditions in which files cannot be used.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_
#define TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_

#include <cstdint>
#include <memory>
#include <string>

namespace tarsio_test {

// The condition ends when the object is destroyed.
using Obstacle = std::unique_ptr<void, void (*)(void*)>;

// The process cannot open files; names and sizes can still be queried.
Obstacle NoFreeFileHandles();

// Limits the size of the process's files to `bytes`, as if the disk were full. Has no effect where
// kFileSizesCanBeLimited is false.
Obstacle FileSizeLimit(uint64_t bytes);
extern const bool kFileSizesCanBeLimited;

// The process cannot read the file `name` in the current directory, and can write it only if
// `writable`.
Obstacle ForbiddenFile(const std::string& name, bool writable);

// The process has no permission for the directory `name` in the current directory and its content,
// except to read it if `readable`. Not every system enforces that.
Obstacle ForbiddenDirectory(const std::string& name, bool readable);

// Cannot be undone.
void CloseStandardOutput();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_FILE_OBSTACLES_H_
