#include <direct.h>
#include <sys/stat.h>

#include <cstdio>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

// Imported by its ordinal, through an import library built from shell32.def.
extern "C" __declspec(dllimport) int WINAPI SHCreateDirectory(HWND owner, LPCWSTR path);

namespace tarsio::platform {

FileType TypeOf(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return FileType::kNone;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? FileType::kDirectory : FileType::kOther;
}

FileStatus Status(const std::wstring& path) {
  const FileType type = TypeOf(path);
  return {type, type == FileType::kOther ? SizeOf(path) : 0};
}

uint64_t SizeOf(const std::wstring& path) {
  struct _stat64 status {};
  if (::_wstat64(path.c_str(), &status) == 0) return static_cast<uint64_t>(status.st_size);
  // msvcrt.dll's stat rejects every path that contains "?", such as one with the long-path prefix.
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (::GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) == 0) return 0;
  return static_cast<uint64_t>(data.nFileSizeHigh) << 32 | data.nFileSizeLow;
}

bool CreateOneDirectory(const std::wstring& path) {
  return ::CreateDirectoryW(path.c_str(), nullptr) != 0;
}

bool CreateDirectories(const std::wstring& path) {
  return ::SHCreateDirectory(nullptr, path.c_str()) == ERROR_SUCCESS;
}

bool CreateDirectoryNarrow(const std::string& path) { return ::_mkdir(path.c_str()) == 0; }

bool RemoveDirectoryNarrow(const std::string& path) { return ::_rmdir(path.c_str()) == 0; }

bool RemoveFileNarrow(const std::string& path) { return std::remove(path.c_str()) == 0; }

}  // namespace tarsio::platform
