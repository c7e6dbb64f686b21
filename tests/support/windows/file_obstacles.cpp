#include "support/file_obstacles.h"

#include <windows.h>
// Needs windows.h first.
#include <aclapi.h>
#include <io.h>

#include <utility>
#include <vector>

namespace tarsio_test {

namespace {

// Runs `undo` when the result is destroyed.
template <typename Undo>
Obstacle Until(Undo undo) {
  return {new Undo(std::move(undo)), [](void* object) {
            const std::unique_ptr<Undo> owned(static_cast<Undo*>(object));
            (*owned)();
          }};
}

void SetAccess(std::string name, ACL* list) {
  ::SetNamedSecurityInfoA(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                          list, nullptr);
}

}  // namespace

// Uses up the runtime's descriptors.
Obstacle NoFreeFileHandles() {
  std::vector<int> copies;
  for (int copy = ::_dup(1); copy >= 0; copy = ::_dup(1)) copies.push_back(copy);
  return Until([copies = std::move(copies)] {
    for (const int copy : copies) ::_close(copy);
  });
}

const bool kFileSizesCanBeLimited = false;

Obstacle FileSizeLimit(uint64_t /*bytes*/) {
  return Until([] {});
}

// Open without sharing, or shared with writers only.
Obstacle ForbiddenFile(const std::string& name, bool writable) {
  const HANDLE file = ::CreateFileA(name.c_str(), GENERIC_READ, writable ? FILE_SHARE_WRITE : 0,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
  return Until([file] { ::CloseHandle(file); });
}

// The denial is inherited by everything below. Wine leaves it to the permissions of its Unix user,
// who may be root.
Obstacle ForbiddenDirectory(const std::string& name, bool readable) {
  ACL* before = nullptr;  // points into the descriptor
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  ::GetNamedSecurityInfoA(name.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                          &before, nullptr, &descriptor);
  std::string user = "CURRENT_USER";
  EXPLICIT_ACCESSA denied{};
  ::BuildExplicitAccessWithNameA(
      &denied, user.data(),
      readable ? FILE_WRITE_DATA | FILE_APPEND_DATA | FILE_DELETE_CHILD | DELETE : FILE_ALL_ACCESS,
      DENY_ACCESS, SUB_CONTAINERS_AND_OBJECTS_INHERIT);
  ACL* list = nullptr;
  ::SetEntriesInAclA(1, &denied, before, &list);
  SetAccess(name, list);
  ::LocalFree(list);
  return Until([=] {
    SetAccess(name, before);
    ::LocalFree(descriptor);
  });
}

void CloseStandardOutput() { ::_close(1); }

}  // namespace tarsio_test
