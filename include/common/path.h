#ifndef TARSIO_COMMON_PATH_H_
#define TARSIO_COMMON_PATH_H_

/// \file
/// A path as a value: parse a string once, inspect its components, join it with another path, print
/// it, and query the file system object that it names.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "common/export.h"

namespace tarsio {

/// A file-system path: an ordered list of UTF-8 components and two flags.
///
/// Parsing only splits a string into components: "." and ".." are ordinary components, letter case
/// is kept, and nothing is trimmed. The rules are the same on every system. Paths are Windows paths
/// on Linux too, where drive `C:` is the root of the file system. There, no file exists on another
/// drive, on a share, or under a name that contains a colon.
///
/// \code{.unparsed}
/// Path p("C:\\work");            p.IsAbsolute(), p.Length() == 2
/// (p / "a/b.txt").Str()          => C:\work\a\b.txt
/// (p / "a/b.txt").Filename()     => b.txt
/// p.ParentPath().Str()           => C:
/// \endcode
///
/// Wide strings are UTF-16 on every system: where `wchar_t` has 32 bits, each holds one UTF-16
/// unit. Wider values are also accepted as input, as code points. Invalid UTF-8 and lone surrogates
/// become U+FFFD.
///
/// Functions that query the file system return an empty result, false or 0 on failure; the cause is
/// not available, and nothing is logged. Their answers may be out of date as soon as they return.
/// Symbolic links are followed, except that on Windows Exists(), IsFile() and IsDirectory() report
/// on the link itself.
///
/// Threads: distinct objects may be used from any threads. Const members of one object may be
/// called concurrently.
///
/// Throws: `std::bad_alloc`. Every member that parses a string also throws `std::out_of_range`
/// ("invalid string position") if a component starts after the string's first NUL (see Tokenize()).
class TARSIO_COMMON_API Path {
 public:
  /// The rules for parsing and printing. Any other value is accepted: it parses as POSIX_PATH and
  /// prints as WINDOWS_PATH.
  enum PathType : int32_t {
    WINDOWS_PATH = 0,  ///< `\\?\` prefixes, shares, drives; `/` and `\` are separators.
    POSIX_PATH = 1,    ///< `/` is the only separator; a leading `/` means absolute.
  };

  /// The empty relative path, of Windows type.
  Path();
  /// Parses `text` (UTF-8) by the Windows rules. A null `const char*` is treated as an empty
  /// string. `Path(nullptr)` is ambiguous and does not compile.
  Path(const char* text);  // NOLINT(google-explicit-constructor): a text is a path to callers
  /// Parses `text` (UTF-8) by the Windows rules.
  Path(const std::string& text);  // NOLINT(google-explicit-constructor): as above
  /// Parses `text` (UTF-16) by the Windows rules. A null `const wchar_t*` is treated as an empty
  /// string.
  Path(const wchar_t* text);  // NOLINT(google-explicit-constructor): as above
  /// Parses `text` (UTF-16) by the Windows rules.
  Path(const std::wstring& text);  // NOLINT(google-explicit-constructor): as above
  /// Copies the components, the type and the flags.
  Path(const Path& other);
  /// The moved-from path keeps its type and flags and has no components.
  Path(Path&& other) noexcept;
  ~Path();

  /// Copies the components, the type and the flags.
  Path& operator=(const Path& other);
  /// The moved-from path keeps its type and flags and has no components.
  Path& operator=(Path&& other) noexcept;
  /// Parses `text` (UTF-16) by the Windows rules.
  Path& operator=(const std::wstring& text);
  /// Parses `text` (UTF-16) by the Windows rules. A null pointer is treated as an empty string.
  Path& operator=(const wchar_t* text);

  /// Replaces this path with `text`, parsed by the rules of `pathType`.
  ///
  /// Windows rules (the first that matches applies):
  ///
  /// \code{.unparsed}
  /// \\?\...            the prefix is removed once, and the rest is parsed by the rules below
  /// \\server\share\f   => absolute, a share: server, share, f
  /// \\server\          => absolute, a share: server
  /// \\server           => relative: server
  /// UNC\server\share   => absolute, a share: server, share (what is left of \\?\UNC\...)
  /// C:\a  C:/a         => absolute: C:, a
  /// C:   C:a           => relative: C:   C:a
  /// \a   /a            => relative: a
  /// //server/share/f   => relative: server, share, f (a share begins with two backslashes)
  /// \endcode
  ///
  /// POSIX rules: "/usr/lib" is absolute with the components usr and lib. A `\` is part of its
  /// component. The share flag is not changed (by design).
  ///
  /// Guarantees: if parsing throws, the path already has the new type. By the Windows rules it has
  /// no components then; by the POSIX rules it keeps its components and flags.
  void Set(const std::string& text, PathType pathType = WINDOWS_PATH);
  /// As above, for UTF-16.
  void Set(const std::wstring& text, PathType pathType = WINDOWS_PATH);

  /// Returns the path as a string. The prefix depends on the type that the path was parsed with,
  /// the separator on `style`: `/` for POSIX_PATH, `\` for anything else.
  ///
  /// \code{.unparsed}
  /// parsed as      C:\a\b   \\srv\share\f   /usr/lib (POSIX)
  /// WINDOWS_PATH   C:\a\b   \\srv\share\f   /usr\lib
  /// POSIX_PATH     C:/a/b   \\srv/share/f   /usr/lib
  /// \endcode
  ///
  /// The result never ends with a separator: `C:\` is printed as `C:`, which names the drive's
  /// current directory. To name the root of the drive, parse `C:\.`.
  ///
  /// An absolute path of Windows type that would print as 260 bytes or more is printed with the
  /// long-path prefix `\\?\`, after which a share has `UNC` and a backslash.
  std::string Str(PathType style = WINDOWS_PATH) const;
  /// Str() as UTF-16.
  std::wstring Wstr(PathType style = WINDOWS_PATH) const;

  /// Returns this path followed by the components of `other`. If `other` is absolute or of another
  /// type, returns an unchanged copy of this path (by design).
  Path operator/(const Path& other) const;

  /// Returns all components except the last. The flags are kept, but the type is always
  /// WINDOWS_PATH (by design): the parent of "/usr/lib", parsed by the POSIX rules, is printed as
  /// usr.
  ///
  /// \code{.unparsed}
  /// C:\a\b => C:\a     C:\x => C:     C:\ => (absolute, no components)
  /// a\b    => a        a    => (empty, relative)     (empty, relative) => ..
  /// \endcode
  Path ParentPath() const;
  /// The last component, or an empty string if there are no components.
  std::string Filename() const;
  /// The part of Filename() after the last ".": "a.tar.gz" => gz, ".bashrc" => bashrc. Empty for
  /// "name." and "name".
  std::string Extension() const;

  /// Whether the path starts at a root: of a drive, of a share, or "/" by the POSIX rules.
  bool IsAbsolute() const;
  /// Whether there are no components. True also for absolute paths such as POSIX `/` and the parent
  /// of `C:\`.
  bool Empty() const;
  /// The number of components (not characters).
  uint64_t Length() const;

  /// Whether the components are equal, compared byte for byte. Type and flags are ignored: "/a"
  /// parsed by the POSIX rules equals the relative "a".
  bool operator==(const Path& other) const;
  /// Whether the components differ.
  bool operator!=(const Path& other) const;

  /// Returns the full path as the operating system sees it. A relative path starts at the current
  /// directory. "." and ".." are resolved by name, never above the root. A single dot at the end of
  /// an inner component and all dots and spaces at the end of the path are removed. The root of a
  /// drive is printed as `C:` again (see Str()).
  ///
  /// Returns the default path if the system rejects the path (an empty one, one of spaces only, or
  /// a result of 32767 UTF-16 units or more), or if it needs the current directory and Getcwd() is
  /// empty.
  ///
  /// \code{.unparsed}
  /// a\..\b  => C:\work\b     C:\..\b => C:\b     a.\...\b. => C:\work\a\...\b
  /// \endcode
  Path Absolute() const;
  /// Returns the current directory, or the default path if it cannot be determined. On Linux, it
  /// cannot be determined if its path contains a backslash or a colon or is not valid UTF-8.
  static Path Getcwd();

  /// Whether a file system object with this name exists and can be queried. For this and all other
  /// operations, "." and ".." are resolved by name, before the system is asked: `missing/../f` is
  /// `f`. A path that is printed with the long-path prefix is not resolved: with "." or ".." in it,
  /// nothing is found.
  TARSIO_COMMON_NODISCARD bool Exists() const;
  /// Whether it exists and is not a directory. Devices count as files.
  TARSIO_COMMON_NODISCARD bool IsFile() const;
  /// Whether it exists and is a directory.
  TARSIO_COMMON_NODISCARD bool IsDirectory() const;
  /// The size in bytes, or 0 if the system does not report one. Use Exists() or IsFile() to
  /// distinguish a missing file from an empty one. The size of a directory depends on the system.
  TARSIO_COMMON_NODISCARD uint64_t FileSize() const;

 protected:
  /// Splits `text` at every byte that occurs in `delimiters`. Leading, trailing and repeated
  /// delimiters do not produce empty components.
  ///
  /// A component that contains the first NUL of `text` ends there; if the NUL is its first byte, it
  /// is empty.
  ///
  /// Throws: `std::out_of_range` ("invalid string position") if a component starts after the first
  /// NUL of `text`.
  static std::vector<std::string> Tokenize(const std::string& text, const std::string& delimiters);

 private:
  static const uint64_t MAX_PATH_WINDOWS;         // UTF-16 units in the system calls' buffers
  static const uint64_t MAX_PATH_WINDOWS_LEGACY;  // longer printed forms get the long-path prefix
  static const uint64_t WIN_SMB_PATH_OFFSET;      // the two backslashes in front of a share

  PathType type = WINDOWS_PATH;
  std::vector<std::string> tokens;
  bool absolute = false;
  bool smb = false;
};

/// Writes `path.Str(Path::WINDOWS_PATH)`.
inline std::ostream& operator<<(std::ostream& out, const Path& path) {
  return out << path.Str(Path::WINDOWS_PATH);
}

/// Creates the directory `path`. Returns false on failure, for example if the parent does not exist
/// or if anything with that name exists. On Linux the mode is 0777 minus the umask. On Windows, the
/// system may reject a full path of 248 to 259 characters.
///
/// Threads: may be called from any thread.
///
/// Throws: `std::bad_alloc`.
TARSIO_COMMON_NODISCARD TARSIO_COMMON_API bool MakeDir(const Path& path);

/// Creates the directory `path` and all missing parents. Returns false on failure, and also if the
/// directory exists already (by design). Parents that were created before a failure remain. On
/// Windows, the system limits the full path to fewer than 248 characters.
///
/// Threads: may be called from any thread.
///
/// Throws: `std::bad_alloc`.
TARSIO_COMMON_NODISCARD TARSIO_COMMON_API bool MakeDirs(const Path& path);

/// An ordered list of directories to search. Initially it has one entry: the current directory at
/// the time of construction.
///
/// \code{.unparsed}
/// PathResolver resolver;
/// resolver.Prepend("C:\\overrides");
/// Path found = resolver.Resolve("images/logo.png");
/// \endcode
///
/// A relative entry is resolved against the current directory at the time of each Resolve().
///
/// Copies are deep. Append(), Prepend() and Erase() invalidate iterators and references to entries.
///
/// Threads: distinct objects may be used from any threads. Resolve() may be called concurrently
/// while no thread changes the list.
///
/// Throws: `std::bad_alloc` only.
class TARSIO_COMMON_API PathResolver {
 public:
  /// Iterates over the entries; also the argument of Erase().
  using iterator = std::vector<Path>::iterator;
  /// Iterates over the entries of a const list.
  using const_iterator = std::vector<Path>::const_iterator;

  /// Creates a list of one entry: Path::Getcwd(), an empty path if that cannot be determined.
  PathResolver();
  /// Copies the list.
  PathResolver(const PathResolver& other);
  /// Copies the list.
  PathResolver& operator=(const PathResolver& other);
  ~PathResolver();

  /// The first entry.
  iterator begin() { return paths.begin(); }
  /// Past the last entry.
  iterator end() { return paths.end(); }
  /// The first entry.
  const_iterator begin() const { return paths.begin(); }
  /// Past the last entry.
  const_iterator end() const { return paths.end(); }

  /// The number of entries.
  uint64_t Size() const;
  /// The entry at `index`.
  ///
  /// Requires: `index` is less than Size(); this is not checked.
  Path& operator[](uint64_t index);
  /// The entry at `index`.
  ///
  /// Requires: `index` is less than Size(); this is not checked.
  const Path& operator[](uint64_t index) const;

  /// Adds `path` as the last entry. Duplicates are allowed.
  void Append(const Path& path);
  /// Adds `path` as the first entry. Duplicates are allowed.
  void Prepend(const Path& path);
  /// Removes the entry at `position`.
  ///
  /// Requires: `position` refers to an entry of this list; this is not checked.
  void Erase(const_iterator position);

  /// Joins each entry with `value` and returns the first result that exists, whether file or
  /// directory. Returns `value` if none exists. A ".." in `value` can lead out of the search
  /// directory.
  ///
  /// If `value` is absolute or of another type, joining leaves the entry unchanged, so the result
  /// is the first search directory that exists (by design).
  TARSIO_COMMON_NODISCARD Path Resolve(const Path& value) const;

 private:
  std::vector<Path> paths;
};

/// Writes the entries, one per line, without a newline at the end.
///
/// \code{.unparsed}
/// resolver[
///   "C:\work",
///   "C:\other"
/// ]
/// \endcode
inline std::ostream& operator<<(std::ostream& out, const PathResolver& resolver) {
  out << "resolver[" << std::endl;
  for (auto entry = resolver.begin(); entry != resolver.end(); ++entry) {
    out << "  \"" << *entry << "\"" << (entry + 1 != resolver.end() ? "," : "") << std::endl;
  }
  return out << "]";
}

}  // namespace tarsio

#endif  // TARSIO_COMMON_PATH_H_
