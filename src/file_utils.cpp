#include "common/file_utils.h"

#include <utility>

#include "common/path.h"
#include "path_syntax.h"
#include "platform/platform.h"

namespace tarsio {

namespace {

// The open-mode bits of the interface. They are not those of every standard library.
constexpr int kInput = 0x01;
constexpr int kOutput = 0x02;
constexpr int kAtEnd = 0x04;
constexpr int kAppend = 0x08;
constexpr int kTruncate = 0x10;
constexpr int kBinary = 0x20;
constexpr int kKnownBits = kInput | kOutput | kAtEnd | kAppend | kTruncate | kBinary;

// Returns false for a mode that a stream does not open with.
bool ToWriteMode(int mode, platform::WriteMode* writeMode) {
  const bool input = (mode & kInput) != 0;
  const bool atEnd = (mode & kAtEnd) != 0;
  const bool append = (mode & kAppend) != 0;
  const bool truncate = (mode & kTruncate) != 0;
  if ((append && truncate) || (mode & ~kKnownBits) != 0) return false;
  const bool keep = input || atEnd || append;
  writeMode->alsoRead = input;
  writeMode->mustExist = input && !append && !truncate;
  writeMode->truncate = truncate || !keep;
  writeMode->atEnd = atEnd;
  writeMode->append = append;
  writeMode->text = (mode & kBinary) == 0;
  return true;
}

// Returns the contents of `file`, or other than `size` bytes if its size has changed.
std::string ReadFile(platform::File& file, size_t size) {
  std::string bytes;
  bytes.reserve(size + 1);  // room to see whether the file goes on
#ifdef __cpp_lib_string_resize_and_overwrite
  bytes.resize_and_overwrite(
      size + 1, [&](char* buffer, size_t room) { return file.Read(buffer, room, size); });
#else
  bytes.resize(size + 1);
  bytes.resize(file.Read(bytes.data(), size + 1, size));
#endif
  return bytes;
}

FileOptRet OpenAndWrite(const std::string& content, const Path& path, int mode) {
  platform::WriteMode writeMode{};
  if (!ToWriteMode(mode, &writeMode)) return FILE_OPT_WRITE_OPEN_FAILED;
  platform::File file = platform::File::OpenForWriting(path.Wstr(Path::WINDOWS_PATH), writeMode);
  if (!file.IsOpen()) return FILE_OPT_WRITE_OPEN_FAILED;
  file.Write(content.data(), content.size());
  return FILE_OPT_SUCCESS;
}

}  // namespace

// By value, as the interface requires: the path may be part of `content`.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
FileOptRet FileUtils::GetFileContent(std::string path, std::string& content) {
  const std::wstring name = Path(path).Wstr(Path::WINDOWS_PATH);
  const platform::FileStatus status = platform::Status(name);
  if (status.type != platform::FileType::kOther) return FILE_OPT_NOT_FILE;
  if (status.size == 0) return FILE_OPT_EMPTY_OR_UNREADABLE;
  platform::File file = platform::File::OpenForReading(name);
  if (!file.IsOpen()) return FILE_OPT_EMPTY_OR_UNREADABLE;

  std::string bytes = ReadFile(file, status.size);
  if (bytes.size() != status.size) {
    content.clear();
    return FILE_OPT_SIZE_MISMATCH;
  }
  content = std::move(bytes);
  return FILE_OPT_SUCCESS;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface requires
FileOptRet FileUtils::WriteFile(std::string content, std::string path, int mode) {
  const Path p(path);
  // The parent of an empty path is "..", which exists. Opening the file fails instead.
  const FileOptRet result =
      p.ParentPath().IsDirectory() ? OpenAndWrite(content, p, mode) : FILE_OPT_NO_PARENT_DIR;
  // A directory is reported first. It never opens for writing, so there is no need to ask before.
  return result != FILE_OPT_SUCCESS && p.IsDirectory() ? FILE_OPT_IS_DIRECTORY : result;
}

bool FileUtils::MakeDir(const std::string& path) {
  if (path.empty()) return false;
  for (size_t end = 1; end <= path.size(); ++end) {
    if (!IsSeparator(path[end - 1])) continue;
    const std::string prefix = path.substr(0, end);  // including the separator
    if (!CheckDirOrFileExists(prefix) && !platform::CreateDirectoryNarrow(prefix)) return false;
  }
  return true;
}

bool FileUtils::RemoveDir(const std::string& path) { return platform::RemoveDirectoryNarrow(path); }

bool FileUtils::RemoveFile(const std::string& path) { return platform::RemoveFileNarrow(path); }

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface requires
bool FileUtils::CheckDirOrFileExists(std::string path) {
  // Parsed twice, so that "UNC\..." is a share here (by design).
  return Path(Path(path).Wstr(Path::WINDOWS_PATH)).Exists();
}

}  // namespace tarsio
