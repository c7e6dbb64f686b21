#include "common/file_utils.h"

#include <algorithm>
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

// Appends the next `size` bytes of `file`. Returns false if it has fewer. Growing a string clears
// the new bytes, so grow by pieces that stay in the cache until the system fills them.
bool AppendFrom(platform::File& file, uint64_t size, std::string& bytes) {
  constexpr uint64_t kPiece = 0x40000;
  for (uint64_t left = size; left > 0;) {
    const size_t piece = std::min(left, kPiece);
    const size_t begin = bytes.size();
    bytes.resize(begin + piece);
    if (file.Read(&bytes[begin], piece) != piece) return false;
    left -= piece;
  }
  return true;
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

  std::string bytes;
  bytes.reserve(status.size);
  char oneMore = '\0';
  if (!AppendFrom(file, status.size, bytes) || file.Read(&oneMore, 1) != 0) {
    content.clear();
    return FILE_OPT_SIZE_MISMATCH;
  }
  content = std::move(bytes);
  return FILE_OPT_SUCCESS;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): by value, as the interface requires
FileOptRet FileUtils::WriteFile(std::string content, std::string path, int mode) {
  const Path p(path);
  if (p.IsDirectory()) return FILE_OPT_IS_DIRECTORY;
  // The parent of an empty path is "..", which exists. Opening the file fails instead.
  if (!p.ParentPath().IsDirectory()) return FILE_OPT_NO_PARENT_DIR;
  platform::WriteMode writeMode{};
  if (!ToWriteMode(mode, &writeMode)) return FILE_OPT_WRITE_OPEN_FAILED;
  platform::File file = platform::File::OpenForWriting(p.Wstr(Path::WINDOWS_PATH), writeMode);
  if (!file.IsOpen()) return FILE_OPT_WRITE_OPEN_FAILED;
  file.Write(content.data(), content.size());
  return FILE_OPT_SUCCESS;
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
