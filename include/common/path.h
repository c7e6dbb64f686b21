#ifndef TARSIO_COMMON_PATH_H_
#define TARSIO_COMMON_PATH_H_

/// \file
/// A path as a value: parse a text once, look at its components, join, print it again, and ask the
/// operating system about the object that it names.

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "common/export.h"

namespace tarsio {

/// A file-system path: an ordered list of UTF-8 components and two flags.
///
/// A text is split into components and nothing else: "." and ".." stay ordinary components, letter
/// case is kept, nothing is trimmed. The same rules hold on every system; Windows paths are the
/// native form of this library on Linux too, where drive `C:` is the root of the file system. A
/// name with a colon, on another drive or on a share does not exist there.
///
/// \code{.unparsed}
/// Path p("C:\\work");            p.IsAbsolute(), p.Length() == 2
/// (p / "a/b.txt").Str()          => C:\work\a\b.txt
/// (p / "a/b.txt").Filename()     => b.txt
/// p.ParentPath().Str()           => C:
/// \endcode
///
/// Wide text is UTF-16 on every system: where `wchar_t` has 32 bits, each one holds one UTF-16
/// unit. On the way in, a wider value is accepted as the character that it is. Invalid UTF-8 and
/// lone surrogates turn into U+FFFD.
///
/// Threads: a plain value. Distinct objects may be used from any thread; the const members of one
/// object may run concurrently.
///
/// What the system refuses gives an empty result, false or 0, without a cause and without a report.
/// Answers about the file system are those of the moment. A symbolic link stands for what it leads
/// to, except that on Windows Exists(), IsFile() and IsDirectory() look at the link itself.
///
/// Throws: `std::bad_alloc`, and `std::out_of_range` ("invalid string position") from
/// every member that parses a string, when a component would start after the string's first NUL
/// (see Tokenize()).
class TARSIO_COMMON_API Path {
 public:
  /// The rules by which a text is parsed and printed. Any other value is accepted: it parses as
  /// POSIX_PATH and prints as WINDOWS_PATH.
  enum PathType : int32_t {
    WINDOWS_PATH = 0,  ///< `\\?\` prefixes, shares, drive letters; `/` and `\` separate.
    POSIX_PATH = 1,    ///< Only `/` separates; a leading `/` makes the path absolute.
  };

  /// The empty relative path, of Windows type.
  Path();
  /// Parses `text` (UTF-8) by the Windows rules. A null `const char*` is an empty text;
  /// `Path(nullptr)` is ambiguous and does not compile.
  Path(const char* text);  // NOLINT(google-explicit-constructor): a text is a path to callers
  /// Parses `text` (UTF-8) by the Windows rules.
  Path(const std::string& text);  // NOLINT(google-explicit-constructor): as above
  /// Parses `text` (UTF-16) by the Windows rules. A null `const wchar_t*` is an empty text.
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
  /// Parses `text` (UTF-16) by the Windows rules. A null pointer is an empty text.
  Path& operator=(const wchar_t* text);

  /// Parses `text` by the rules of `pathType` and replaces what the path held.
  ///
  /// Windows rules, the first that matches:
  ///
  /// \code{.unparsed}
  /// \\?\...            the prefix is dropped, once, and the rest is parsed
  /// \\server\share\f   => absolute, a share: server, share, f
  /// \\server           => relative: server
  /// UNC\server\share   => absolute, a share: server, share (what is left of \\?\UNC\...)
  /// C:\a  C:/a         => absolute: C:, a
  /// C:  C:a  \a  /a    => relative: C: | C:a | a | a
  /// //server/share/f   => relative: server | share | f (a share begins with two backslashes)
  /// \endcode
  ///
  /// POSIX rules: "/usr/lib" is absolute with the components usr and lib; a `\` stays inside its
  /// component. A POSIX parse leaves the share flag as it was.
  ///
  /// If it throws, by Windows rules no component is left, by POSIX rules those of before.
  void Set(const std::string& text, PathType pathType = WINDOWS_PATH);
  /// As above, from UTF-16.
  void Set(const std::wstring& text, PathType pathType = WINDOWS_PATH);

  /// The printed form. The prefix follows the type that the path was parsed with; the separator
  /// follows `style`: `/` for POSIX_PATH, `\` for anything else.
  ///
  /// \code{.unparsed}
  /// parsed as      C:\a\b   \\srv\share\f   /usr/lib (POSIX)
  /// WINDOWS_PATH   C:\a\b   \\srv\share\f   /usr\lib
  /// POSIX_PATH     C:/a/b   \\srv/share/f   /usr/lib
  /// \endcode
  ///
  /// No separator ends it: `C:\` prints as `C:`, which names the drive's current directory. For the
  /// root of the drive, parse `C:\.`.
  ///
  /// An absolute path of Windows type whose printed form would have 260 bytes or more is printed
  /// with the long-path prefix that Set() drops: the one of shares for a share.
  std::string Str(PathType style = WINDOWS_PATH) const;
  /// Str() as UTF-16.
  std::wstring Wstr(PathType style = WINDOWS_PATH) const;

  /// This path with the components of `other` after its own. If `other` is absolute, or of another
  /// type, the result is an unchanged copy of this path, without a report.
  Path operator/(const Path& other) const;

  /// All components but the last; the flags are kept and the type is WINDOWS_PATH, whatever this
  /// path's is. So the parent of "/usr/lib", parsed by the POSIX rules, prints as usr.
  ///
  /// \code{.unparsed}
  /// C:\a\b => C:\a     C:\x => C:     C:\ => (absolute, no components)
  /// a\b    => a        a    => (empty, relative)     (empty, relative) => ..
  /// \endcode
  Path ParentPath() const;
  /// The last component as it stands, or an empty text if there is none.
  std::string Filename() const;
  /// What follows the last "." of Filename(): "a.tar.gz" => gz, ".bashrc" => bashrc, "name." and
  /// "name" => an empty text.
  std::string Extension() const;

  /// Whether the text named a place from a root on: of a drive, of a share, or "/" by POSIX rules.
  bool IsAbsolute() const;
  /// True when there are no components, also for an absolute path such as `/` or the parent of
  /// `C:\`.
  bool Empty() const;
  /// The number of components (not of characters).
  uint64_t Length() const;

  /// Compares the components byte for byte. Type and flags are ignored: "/a" parsed by the POSIX
  /// rules equals the relative "a".
  bool operator==(const Path& other) const;
  /// Whether the components differ.
  bool operator!=(const Path& other) const;

  /// The full path as the operating system sees it: built on the current directory, "." and ".."
  /// resolved by text, never above the root. A single dot at the end of an inner component is
  /// dropped, and every dot and space at the end of the path. The default path if the system
  /// refuses the text (an empty one, one of spaces alone, or a result of 32767 UTF-16 units or
  /// more), or if Getcwd() is needed and empty.
  ///
  /// \code{.unparsed}
  /// a\..\b  => C:\work\b     C:\..\b => C:\b     a.\...\b. => C:\work\a\...\b
  /// \endcode
  Path Absolute() const;
  /// The current directory; the default path if it cannot be determined. On Linux that includes a
  /// directory whose path holds a backslash or a colon, or is not UTF-8.
  static Path Getcwd();

  /// Whether anything of that name exists and may be asked about. Here and below, "." and ".." are
  /// resolved by text before the system is asked: `missing/../f` is `f`. In a path that is printed
  /// with the long-path prefix they are names, so nothing is found.
  TARSIO_COMMON_NODISCARD bool Exists() const;
  /// Whether it exists and is no directory: devices and the like count as files.
  TARSIO_COMMON_NODISCARD bool IsFile() const;
  /// Whether it exists and is a directory.
  TARSIO_COMMON_NODISCARD bool IsDirectory() const;
  /// The size in bytes; 0 if the system does not give it. Ask Exists() or IsFile() to distinguish a
  /// missing file from an empty one. What a directory gives is the system's choice.
  TARSIO_COMMON_NODISCARD uint64_t FileSize() const;

 protected:
  /// Splits `text` at every byte that occurs in `delimiters`. Leading, trailing and repeated
  /// delimiters yield no empty components.
  ///
  /// Components are cut from the text up to its first NUL, so those after a NUL are shortened,
  /// perhaps to nothing. Throws `std::out_of_range` ("invalid string position") if one would start
  /// after that NUL.
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

/// Creates the directory that `path` names, its last component only. False if that fails for any
/// reason: a missing parent, or anything of that name that exists already. On Linux its mode is
/// 0777 less the umask.
///
/// Threads: may be called from any thread, as may MakeDirs(). Throws what Path throws.
TARSIO_COMMON_NODISCARD TARSIO_COMMON_API bool MakeDir(const Path& path);

/// Creates the directory that `path` names with every missing directory on the way. False if that
/// fails, and also if the directory exists already: a second call returns false.
TARSIO_COMMON_NODISCARD TARSIO_COMMON_API bool MakeDirs(const Path& path);

/// An ordered list of search directories, first searched first. It begins with one entry, the
/// current directory at the time of construction.
///
/// \code{.unparsed}
/// PathResolver resolver;
/// resolver.Prepend("C:\\overrides");
/// Path found = resolver.Resolve("images/logo.png");
/// \endcode
///
/// A relative entry is searched from the current directory at the time of each Resolve().
///
/// Copies are deep. Append(), Prepend() and Erase() invalidate positions in the list and references
/// to its entries.
///
/// Threads: a plain value. Resolve() calls may run concurrently while no thread changes the list.
/// Throws:  nothing but memory exhaustion.
class TARSIO_COMMON_API PathResolver {
 public:
  /// A position in the list, for going through the entries and for Erase().
  using iterator = std::vector<Path>::iterator;
  /// A position in a list that is not to be changed.
  using const_iterator = std::vector<Path>::const_iterator;

  /// One entry: Path::Getcwd(), so an empty path if the current directory cannot be determined.
  PathResolver();
  /// Copies the list.
  PathResolver(const PathResolver& other);
  /// Copies the list.
  PathResolver& operator=(const PathResolver& other);
  ~PathResolver();

  /// The first entry. Positions hold until the list is changed.
  iterator begin() { return paths.begin(); }
  /// After the last entry.
  iterator end() { return paths.end(); }
  /// The first entry.
  const_iterator begin() const { return paths.begin(); }
  /// After the last entry.
  const_iterator end() const { return paths.end(); }

  /// The number of entries.
  uint64_t Size() const;
  /// The entry at `index`, which must be below Size(); it is not checked.
  Path& operator[](uint64_t index);
  /// The entry at `index`, which must be below Size(); it is not checked.
  const Path& operator[](uint64_t index) const;

  /// Adds a directory to be searched last. Duplicates are allowed.
  void Append(const Path& path);
  /// Adds a directory to be searched first. Duplicates are allowed.
  void Prepend(const Path& path);
  /// Removes the entry at `position`, which must be one; those after it move up.
  void Erase(const_iterator position);

  /// The first directory joined with `value` that exists, be it a file or a directory; `value`
  /// itself if none does. A ".." in `value` leaves the search directory.
  ///
  /// Joining an absolute value, or one of another type, changes nothing: such a value resolves to
  /// the first search directory that exists.
  TARSIO_COMMON_NODISCARD Path Resolve(const Path& value) const;

 private:
  std::vector<Path> paths;
};

/// Writes the entries, each on a line of its own; nothing ends the last line.
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
