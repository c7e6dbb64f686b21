// Windows paths on a POSIX file system.

#ifndef TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_
#define TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace tarsio::platform {

// The native name of `path`, a Windows path; bytes that are not UTF-8 stay as they are. Empty if it
// names nothing here: an empty string, another drive than C:, a share or device, a colon in a name.
std::string NativePath(std::string path);
std::string NativePath(const std::wstring& path);

struct RootedPath {
  // "C:/", "//server/share/" or "//?/", each with the separators it was given. Empty if the path is
  // relative to the current directory.
  std::string root;
  std::string_view rest;  // a part of the path given
};

RootedPath FindRoot(std::string_view path);

// Resolves "." and ".." in the components from `begin` to the end of `path`, merges separators, and
// leaves "/" between the components and none at the end. What is before `begin` is resolved
// already;
// ".." removes components of it too, but nothing of the root, the first `root` bytes. Returns how
// many bytes of what was resolved already are left.
//
// If `keepParents`, a ".." without a component to remove stays, rather than being dropped.
size_t ResolveDots(std::string& path, size_t root, size_t begin, bool keepParents);

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_
