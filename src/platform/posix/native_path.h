// Windows paths on a POSIX file system.

#ifndef TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_
#define TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace tarsio::platform {

// Converts a Windows path to a native one. Bytes that are not UTF-8 are kept. Returns an empty
// string if `path` cannot exist here: it is empty, is on a drive other than C:, on a share or a
// device, or has a colon in a name.
std::string NativePath(std::string path);
std::string NativePath(const std::wstring& path);

struct RootedPath {
  // "C:/", "//server/share/" or "//?/". Separators before the share's or device's name are kept as
  // given. Empty if the path is relative to the current directory.
  std::string root;
  std::string_view rest;  // points into the path passed to FindRoot()
};

RootedPath FindRoot(std::string_view path);

// Resolves "." and ".." in the components of `path` from `begin` on. Merges separators, writes each
// as "/" and drops them at the end. The part before `begin` must be resolved already. A ".." may
// remove its components, but never the root, which is the first `root` bytes. Returns how many
// bytes of that part remain.
//
// A ".." with no component to remove is kept if `keepParents`, and dropped otherwise.
size_t ResolveDots(std::string& path, size_t root, size_t begin, bool keepParents);

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_
