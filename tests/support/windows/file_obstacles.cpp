#include "support/file_obstacles.h"

#include <windows.h>
// Needs windows.h first.
#include <aclapi.h>
#include <io.h>

#include <fstream>
#include <vector>

namespace tarsio_test {

struct NoFreeFileHandles::State {
  std::vector<int> copies;
};

// Uses up the runtime's descriptors.
NoFreeFileHandles::NoFreeFileHandles() : state(std::make_unique<State>()) {
  for (int copy = ::_dup(1); copy >= 0; copy = ::_dup(1)) state->copies.push_back(copy);
}

NoFreeFileHandles::~NoFreeFileHandles() {
  for (const int copy : state->copies) ::_close(copy);
}

// A file in the current directory whose bytes are locked. Wine permits the write anyway.
struct FileThatTakesNothing::State {
  HANDLE file = INVALID_HANDLE_VALUE;
};

FileThatTakesNothing::FileThatTakesNothing() : state(std::make_unique<State>()) {
  std::ofstream(Text()) << "locked";
  state->file =
      ::CreateFileA(Text().c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  OVERLAPPED start{};
  ::LockFileEx(state->file, LOCKFILE_EXCLUSIVE_LOCK, 0, MAXDWORD, 0, &start);
}

FileThatTakesNothing::~FileThatTakesNothing() { ::CloseHandle(state->file); }

std::string FileThatTakesNothing::Text() const { return R"(.\locked.bin)"; }

// Windows has no such limit.
struct FileSizeLimit::State {};

FileSizeLimit::FileSizeLimit(uint64_t /*bytes*/) {}
FileSizeLimit::~FileSizeLimit() = default;
uint64_t FileSizeLimit::Bytes() const { return UINT64_MAX; }

// Open without sharing, or shared with writers only.
struct ForbiddenFile::State {
  HANDLE file = INVALID_HANDLE_VALUE;
};

ForbiddenFile::ForbiddenFile(const std::string& name, bool writable)
    : state(std::make_unique<State>()) {
  state->file = ::CreateFileA(name.c_str(), GENERIC_READ, writable ? FILE_SHARE_WRITE : 0, nullptr,
                              OPEN_EXISTING, 0, nullptr);
}

ForbiddenFile::~ForbiddenFile() { ::CloseHandle(state->file); }

// The denial is inherited by everything below. Wine leaves it to the permissions of its Unix user,
// who may be root.
struct ForbiddenDirectory::State {
  void Set(ACL* list) {
    ::SetNamedSecurityInfoA(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                            nullptr, list, nullptr);
  }

  std::string name;
  ACL* before = nullptr;  // points into the descriptor
  PSECURITY_DESCRIPTOR descriptor = nullptr;
};

ForbiddenDirectory::ForbiddenDirectory(const std::string& name, bool readable)
    : state(std::make_unique<State>()) {
  state->name = name;
  ::GetNamedSecurityInfoA(name.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                          &state->before, nullptr, &state->descriptor);
  std::string user = "CURRENT_USER";
  EXPLICIT_ACCESSA denied{};
  ::BuildExplicitAccessWithNameA(
      &denied, user.data(),
      readable ? FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_DELETE_CHILD | DELETE : FILE_ALL_ACCESS,
      DENY_ACCESS, SUB_CONTAINERS_AND_OBJECTS_INHERIT);
  ACL* list = nullptr;
  ::SetEntriesInAclA(1, &denied, state->before, &list);
  state->Set(list);
  ::LocalFree(list);
}

ForbiddenDirectory::~ForbiddenDirectory() {
  state->Set(state->before);
  ::LocalFree(state->descriptor);
}

void CloseStandardInput() { ::_close(0); }
void CloseStandardOutput() { ::_close(1); }

}  // namespace tarsio_test
