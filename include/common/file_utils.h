#ifndef TARSIO_COMMON_FILE_UTILS_H_
#define TARSIO_COMMON_FILE_UTILS_H_

/// \file
/// Reads and writes whole files, creates and removes directories, and removes files.

#include <cstdint>
#include <string>

#include "common/export.h"

namespace tarsio {

/// The result of reading or writing a whole file.
enum FileOptRet : int32_t {
  FILE_OPT_SUCCESS = 0,
  FILE_OPT_NOT_FILE = 1,             ///< Reading: does not exist, or is a directory.
  FILE_OPT_EMPTY_OR_UNREADABLE = 2,  ///< Reading: the size is 0, or opening failed.
  FILE_OPT_SIZE_MISMATCH = 3,        ///< Reading: the size was not as reported; output cleared.
  FILE_OPT_WRITE_OPEN_FAILED = 4,    ///< Writing: opening failed, or the mode is invalid.
  FILE_OPT_NO_PARENT_DIR = 5,        ///< Writing: the parent is not an existing directory.
  FILE_OPT_IS_DIRECTORY = 6,         ///< Writing: the path names a directory.
};

/// Functions on files and directories, with paths as narrow strings.
///
/// GetFileContent(), WriteFile() and CheckDirOrFileExists() parse the path as UTF-8 with Path.
/// RemoveDir() and RemoveFile() pass it unchanged to the C runtime, in the process's narrow code
/// page. MakeDir() checks whether a directory exists like the first group and creates it like the
/// second. Both groups name the same file for an ASCII path that begins with a name, or with a
/// drive and a separator, and whose full form is shorter than 248 characters. They differ for these
/// paths:
///
///     "/d/f"       relative (d/f) to the first group, as to Path; from the root to RemoveDir() and
///                  RemoveFile(); MakeDir() fails
///     long paths   on Windows, only the first group adds the long-path prefix
///     non-ASCII    on Windows, the encodings differ
///     UNC\a        a share to the first group; CheckDirOrFileExists() also takes UNC/a for one
///
/// On Linux, paths are Windows paths as well: `C:\a` and `C:/a` name /a. On both systems "." and
/// ".." are resolved by name, before the system is asked: "missing/../f" is "f". Files are read and
/// written through symbolic links. RemoveFile() removes the link itself; on Windows, a link to a
/// directory is removed by RemoveDir().
///
/// The result is the only sign of a failure: the cause is not available, and nothing is logged.
///
/// Threads: every function may be called from any thread. Other readers and writers of a file are
/// not locked out.
///
/// Throws: `std::bad_alloc`, `std::length_error` for a file too large for a string, and what Path
/// throws.
class TARSIO_COMMON_API FileUtils {
 public:
  /// Reads the whole file at `path`, byte for byte, into `content`. Results 1 and 2 leave `content`
  /// unchanged. Result 3 clears it: the file changed during the call, or the system reports a wrong
  /// size, as it does for files in /sys.
  TARSIO_COMMON_NODISCARD static FileOptRet GetFileContent(std::string path, std::string& content);

  /// Writes `content` to the file at `path`. The content is the first argument.
  ///
  /// `mode` is a combination of these bits; 0 replaces an existing file, in text mode:
  ///
  ///     0x01 input      overwrite in place, without truncating; the file must be readable, and
  ///                     must exist unless 0x08 or 0x10 is set as well
  ///     0x02 output     always set
  ///     0x04 at end     keep an existing file and write at its end; fails for a pipe or a device
  ///     0x08 append     keep an existing file; each write goes to its end
  ///     0x10 truncate   empty an existing file; with 0x01, also create a missing one
  ///     0x20 binary     write the bytes unchanged; otherwise Windows turns LF into CR LF
  ///
  /// 0x08 with 0x10, or any other bit, gives result 4 and does not touch the file. Results 6 and 5
  /// take precedence. A bare file name gives 5, since its parent is an empty path (by design): use
  /// "./name". Errors during writing are not detected and may leave a truncated file. On Linux a
  /// new file has mode 0666 minus the umask.
  TARSIO_COMMON_NODISCARD static FileOptRet WriteFile(std::string content, std::string path,
                                                      int mode);

  /// Creates every directory in `path` that is followed by a separator (by design): "a/b/c" creates
  /// a and a/b, "a/b/c/" creates all three, and "abc" creates nothing and returns true. Whatever
  /// exists according to CheckDirOrFileExists() is skipped, even a file.
  ///
  /// Returns false if `path` is empty, and at the first directory that cannot be created; those
  /// created before remain. A path that begins with a separator always fails, including shares and
  /// paths with the long-path prefix. Where the encodings differ, the check does not find the
  /// directory, so only the first call succeeds: on Windows for non-ASCII names, unless the narrow
  /// code page is UTF-8; on Linux for names that are not UTF-8.
  ///
  /// On Linux a new directory has mode 0777 minus the umask.
  TARSIO_COMMON_NODISCARD static bool MakeDir(const std::string& path);

  /// Removes an empty directory. Returns whether it was removed.
  TARSIO_COMMON_NODISCARD static bool RemoveDir(const std::string& path);

  /// Removes a file, but not a directory. Returns whether it was removed.
  TARSIO_COMMON_NODISCARD static bool RemoveFile(const std::string& path);

  /// Whether a file or directory with this name exists. The path is parsed, printed and parsed
  /// again, so a relative path whose first component is "UNC" is taken for a share (by design).
  TARSIO_COMMON_NODISCARD static bool CheckDirOrFileExists(std::string path);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_FILE_UTILS_H_
