#ifndef TARSIO_COMMON_FILE_UTILS_H_
#define TARSIO_COMMON_FILE_UTILS_H_

/// \file
/// Whole files read and written in one call, directories made and removed.

#include <cstdint>
#include <string>

#include "common/export.h"

namespace tarsio {

/// What a whole-file operation came to.
enum FileOptRet : int32_t {
  FILE_OPT_SUCCESS = 0,
  FILE_OPT_NOT_FILE = 1,             ///< Reading: nothing of that name, or a directory.
  FILE_OPT_EMPTY_OR_UNREADABLE = 2,  ///< Reading: the size is 0, or opening failed.
  FILE_OPT_SIZE_MISMATCH = 3,        ///< Reading: other than the file's size came; output cleared.
  FILE_OPT_WRITE_OPEN_FAILED = 4,    ///< Writing: opening failed, or the mode is none.
  FILE_OPT_NO_PARENT_DIR = 5,        ///< Writing: the parent is no existing directory.
  FILE_OPT_IS_DIRECTORY = 6,         ///< Writing: the path names a directory.
};

/// Functions on files and directories that are named by narrow text.
///
/// GetFileContent(), WriteFile() and CheckDirOrFileExists() take the text as UTF-8 and parse it
/// with Path; MakeDir(), RemoveDir() and RemoveFile() hand it to the runtime as it stands, in the
/// narrow code page of the process. For plain ASCII both ways agree.
///
/// On Linux the texts are Windows paths as well (`C:\a` or `C:/a` is /a). Mind that the first three
/// take a text such as "/tmp/x" for a relative path, as Path does. On both systems "." and ".." are
/// resolved by text before the system is asked: "missing/../f" is "f".
///
/// A failure is told by the result alone; nothing says why, and nothing is logged.
///
/// Threads: every function may be called from any thread. Other readers and writers of a file are
/// not locked out.
///
/// Throws: nothing of its own; memory exhaustion and what Path throws.
class TARSIO_COMMON_API FileUtils {
 public:
  /// Reads the whole file at `path`, byte for byte, into `content`. For results 1 and 2 `content`
  /// is left as it was; for 3 (the file changed while it was read) it is emptied.
  TARSIO_COMMON_NODISCARD static FileOptRet GetFileContent(std::string path, std::string& content);

  /// Writes `content` to the file at `path`. Mind the order: the content comes first.
  ///
  /// `mode` is a sum of these bits; 0 replaces what the file held, in text mode:
  ///
  ///     0x01 input      update an existing file in place; it must exist and be readable
  ///     0x02 output     always set
  ///     0x04 at end     keep an existing file and write after it; fails for a pipe or a device
  ///     0x08 append     the same, each write going to the end
  ///     0x10 truncate   empty an existing file (also with 0x01, which then creates one)
  ///     0x20 binary     write the bytes unchanged; else Windows turns LF into CR LF
  ///
  /// Append with truncate, and any other bit, is refused with result 4, the file untouched. A bare
  /// file name is refused with 5, since its parent is an empty path: write `.\name`. Errors while
  /// writing are not detected, and may leave a file that is cut short.
  TARSIO_COMMON_NODISCARD static FileOptRet WriteFile(std::string content, std::string path,
                                                      int mode);

  /// Creates every directory whose name in `path` ends in a separator: "a/b/c" creates a and a/b,
  /// "a/b/c/" all three. False for an empty text, or as soon as one cannot be created; those made
  /// before stay. Whatever exists is passed over, a file too.
  TARSIO_COMMON_NODISCARD static bool MakeDir(const std::string& path);

  /// Removes an empty directory, and returns whether it did.
  TARSIO_COMMON_NODISCARD static bool RemoveDir(const std::string& path);

  /// Removes a file, and returns whether it did; a directory is refused.
  TARSIO_COMMON_NODISCARD static bool RemoveFile(const std::string& path);

  /// Whether anything of that name exists. The text is parsed, printed and parsed again, so a
  /// relative path whose first component is "UNC" is taken for a share.
  TARSIO_COMMON_NODISCARD static bool CheckDirOrFileExists(std::string path);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_FILE_UTILS_H_
