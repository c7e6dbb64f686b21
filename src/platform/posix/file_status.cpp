#include <sys/stat.h>
#include <unistd.h>

#include "platform/platform.h"
#include "platform/posix/native_path.h"

namespace tarsio::platform {

namespace {

// NativePath() returns an empty string for a path that cannot exist. Every system call rejects it.
bool Stat(const std::wstring& path, struct stat* status) {
  return ::stat(NativePath(path).c_str(), status) == 0;
}

bool MakeNativeDirectory(const std::string& native) { return ::mkdir(native.c_str(), 0777) == 0; }

}  // namespace

FileType TypeOf(const std::wstring& path) { return Status(path).type; }

FileStatus Status(const std::wstring& path) {
  struct stat status {};
  if (!Stat(path, &status)) return {};
  return {S_ISDIR(status.st_mode) ? FileType::kDirectory : FileType::kOther,
          static_cast<uint64_t>(status.st_size)};
}

uint64_t SizeOf(const std::wstring& path) { return Status(path).size; }

bool CreateOneDirectory(const std::wstring& path) { return MakeNativeDirectory(NativePath(path)); }

bool CreateDirectories(const std::wstring& path) {
  const std::string native = NativePath(path);
  if (native.empty() || native[0] != '/') return false;
  // Ignore errors here; the final mkdir() reports them.
  for (size_t end = native.find('/', 1); end != std::string::npos;
       end = native.find('/', end + 1)) {
    MakeNativeDirectory(native.substr(0, end));
  }
  return MakeNativeDirectory(native);
}

bool CreateDirectoryNarrow(const std::string& path) {
  return MakeNativeDirectory(NativePath(path));
}

bool RemoveDirectoryNarrow(const std::string& path) {
  return ::rmdir(NativePath(path).c_str()) == 0;
}

bool RemoveFileNarrow(const std::string& path) { return ::unlink(NativePath(path).c_str()) == 0; }

}  // namespace tarsio::platform
