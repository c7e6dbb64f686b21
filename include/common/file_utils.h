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
  FILE_OPT_WRITE_OPEN_FAILED = 4,    ///< Writing: opening failed, or the mode is invalid.
  FILE_OPT_NO_PARENT_DIR = 5,        ///< Writing: the parent is no existing directory.
  FILE_OPT_IS_DIRECTORY = 6,         ///< Writing: the path names a directory.
};

/// Functions on files and directories that are named by narrow strings.
///
/// GetFileContent(), WriteFile() and CheckDirOrFileExists() take the path as UTF-8 and parse it
/// with Path. RemoveDir() and RemoveFile() hand it to the runtime as it stands, in the narrow code
/// page of the process. MakeDir() does both: it asks as the first group does whether a directory
/// exists, and creates it as the second group would. All agree on ASCII paths that begin with a
/// drive and a separator or with a name, and whose full form has fewer than 248 characters. They
/// differ for
///
///     "/d/f"       the first group takes it for the relative d/f, as Path does; RemoveDir() and
///                  RemoveFile() take it from the root, and MakeDir() looks in one place and
///                  creates in the other
///     long paths   only the first group knows the long-path prefix (on Windows)
///     other bytes  the encodings differ
///
/// On Linux the paths are Windows paths as well (`C:\a` or `C:/a` is /a). On both systems "." and
/// ".." are resolved by text before the system is asked: "missing/../f" is "f". Files are read and
/// written through symbolic links; RemoveFile() removes the link itself.
///
/// The result is the only sign of a failure: the cause is not kept, and nothing is logged.
///
/// Threads: every function may be called from any thread. Other readers and writers of a file are
/// not locked out.
///
/// Throws: nothing of its own; memory exhaustion and what Path throws.
class TARSIO_COMMON_API FileUtils {
 public:
  /// Reads the whole file at `path`, byte for byte, into `content`. For results 1 and 2 `content`
  /// is left as it was. For 3 it is emptied: the file changed while it was read, or the system
  /// gives it a size that it does not have, as it does for those in /sys.
  TARSIO_COMMON_NODISCARD static FileOptRet GetFileContent(std::string path, std::string& content);

  /// Writes `content` to the file at `path`. Mind the order: the content comes first.
  ///
  /// `mode` is a sum of these bits; 0 replaces what the file held, in text mode:
  ///
  ///     0x01 input      update in place; the file must be readable, and must exist unless 0x08 or
  ///                     0x10 is set as well
  ///     0x02 output     always set
  ///     0x04 at end     keep an existing file and write after it; fails for a pipe or a device
  ///     0x08 append     the same, each write going to the end
  ///     0x10 truncate   empty an existing file (also with 0x01, which then creates one)
  ///     0x20 binary     write the bytes unchanged; else Windows turns LF into CR LF
  ///
  /// Append with truncate, and any other bit, is refused with result 4, the file untouched; but a
  /// directory (6) or a missing parent (5) is noticed first. A bare file name is refused with 5,
  /// since its parent is an empty path: write `.\name`. Errors while writing are not detected, and
  /// may leave a file that is cut short. On Linux a new file has mode 0666 less the umask.
  TARSIO_COMMON_NODISCARD static FileOptRet WriteFile(std::string content, std::string path,
                                                      int mode);

  /// Creates every directory whose name in `path` ends in a separator: "a/b/c" creates a and a/b,
  /// "a/b/c/" all three; "abc" creates nothing and is a success. False for an empty string, or as
  /// soon as one cannot be created; those made before stay. What exists by CheckDirOrFileExists()
  /// is passed over, a file too. A directory that it does not find (a path from the root without a
  /// drive, bytes that are not UTF-8) is created again, which fails if it exists. On Linux a new
  /// directory has mode 0777 less the umask.
  TARSIO_COMMON_NODISCARD static bool MakeDir(const std::string& path);

  /// Removes an empty directory, and returns whether it did.
  TARSIO_COMMON_NODISCARD static bool RemoveDir(const std::string& path);

  /// Removes a file, and returns whether it did; a directory is refused.
  TARSIO_COMMON_NODISCARD static bool RemoveFile(const std::string& path);

  /// Whether anything of that name exists. The path is parsed, printed and parsed again, so a
  /// relative one whose first component is "UNC" is taken for a share.
  TARSIO_COMMON_NODISCARD static bool CheckDirOrFileExists(std::string path);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_FILE_UTILS_H_
