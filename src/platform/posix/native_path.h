// Windows paths on a POSIX file system.

#ifndef TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_
#define TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_

#include <string>

namespace tarsio::platform {

// The native name of `path`, a Windows path. Empty if it names nothing here: an empty text, another
// drive than C:, a share.
std::string NativePath(std::string path);
std::string NativePath(const std::wstring& path);

// The native path of a directory as a Windows path: /home/u => C:\home\u.
std::wstring FromNativePath(const std::string& native);

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_POSIX_NATIVE_PATH_H_
