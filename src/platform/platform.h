// Everything the library needs from the operating system. Each folder next to this file implements
// it for one system; no other file depends on the system.
//
// Wide strings are UTF-16, one unit per wchar_t, on every system. Paths are Windows paths. A system
// with other paths maps them: drive C: is its root, other drives and shares do not exist, and "."
// and ".." are resolved lexically. Failures are reported without their cause.
//
// Threads: all functions are safe to call concurrently.

#ifndef TARSIO_COMMON_SRC_PLATFORM_PLATFORM_H_
#define TARSIO_COMMON_SRC_PLATFORM_PLATFORM_H_

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <locale>
#include <optional>
#include <string>

namespace tarsio::platform {

// ---- UTF-8 and UTF-16 ----

// Converts UTF-8 to UTF-16. Each ill-formed sequence becomes one U+FFFD: a lead byte and the
// continuation bytes after it, up to and including the first one that makes the sequence invalid.
// Returns an empty string for INT_MAX bytes or more.
std::wstring Widen(const std::string& utf8);

// Converts UTF-16 to UTF-8. A lone surrogate becomes U+FFFD. Where wchar_t is wider than 16 bits, a
// value above 0xFFFF is encoded as that code point. Returns an empty string for INT_MAX units or
// more.
std::string Narrow(const std::wstring& utf16);

// Makes the user's default locale the global locale of both C++ and the C runtime, and returns it.
// Its codecvt<wchar_t, char> facet converts the user's multibyte encoding. Throws
// std::runtime_error ("bad locale name") if the locale does not exist.
std::locale MakeUserLocaleGlobal();

// Returns true if the C runtime's character functions use the "C" locale on this thread.
bool RuntimeLocaleIsClassic();

// ---- environment ----

// Returns the value of an environment variable. Empty if it is not set, or if the value and its
// terminator need more than `capacity` units.
std::wstring Environment(const std::wstring& name, size_t capacity);

struct Version {
  uint32_t major;
  uint32_t minor;
};

// Returns the version of the running system, or nullopt if it cannot be determined.
std::optional<Version> RunningVersion();

// ---- paths ----

// Resolves `path` against the current directory. "." and ".." are resolved, never above the root;
// repeated separators are merged. A single dot at the end of an inner component is dropped, and so
// are all dots and spaces at the end of the path. Returns an empty string if `path` is empty or
// only spaces, or if the result and its terminator need more than `capacity` units.
std::wstring FullPath(const std::wstring& path, size_t capacity);

// Returns the current directory as an absolute path. Empty if it cannot be determined, or if it and
// its terminator need more than `capacity` units.
std::wstring CurrentDirectory(size_t capacity);

// ---- file status ----

enum class FileType { kNone, kDirectory, kOther };

struct FileStatus {
  FileType type;
  uint64_t size;  // in bytes, as SizeOf() returns it; unspecified for a directory
};

// Returns what `path` names. The type is kNone if it does not exist or the system reports an error.
FileType TypeOf(const std::wstring& path);
FileStatus Status(const std::wstring& path);

// Returns the size in bytes that the runtime's stat() reports, also for a directory. 0 on failure.
uint64_t SizeOf(const std::wstring& path);

// Creates one directory. Returns false if the name exists or its parent does not.
bool CreateOneDirectory(const std::wstring& path);
// Creates a directory and its missing parents. `path` must be a full path. Returns false if it
// exists.
bool CreateDirectories(const std::wstring& path);

// The runtime's narrow calls. The bytes of `path` are passed to them unchanged.
bool CreateDirectoryNarrow(const std::string& path);
bool RemoveDirectoryNarrow(const std::string& path);  // fails if it is not empty
bool RemoveFileNarrow(const std::string& path);       // fails for a directory

// ---- files ----

// How to open a file for writing.
struct WriteMode {
  bool alsoRead;   // request read access as well
  bool mustExist;  // do not create a missing file
  bool truncate;   // discard the contents of an existing file
  bool atEnd;      // start writing at the end of the file
  bool append;     // seek to the current end of the file before each write
  bool text;       // convert "\n" to the system's line ending
};

// An open file, shared for reading and writing.
class File {
 public:
  // Check IsOpen() for success.
  static File OpenForReading(const std::wstring& path);
  static File OpenForWriting(const std::wstring& path, const WriteMode& mode);

  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File();

  bool IsOpen() const { return descriptor >= 0; }
  // Reads up to `size` bytes. Returns fewer only at the end of the file or on failure. After
  // `expected` bytes, takes a transfer that returned fewer than requested for the end.
  size_t Read(char* buffer, size_t size, size_t expected = SIZE_MAX);
  // Writes `size` bytes, or fewer on failure.
  void Write(const char* data, size_t size);

 private:
  explicit File(int openDescriptor, int signal = 0)
      : descriptor(openDescriptor), writeSignal(signal) {}

  const int descriptor;
  [[maybe_unused]] const int writeSignal;  // which a failing write may raise; 0 if none
};

// ---- signals ----

// Returns the signal that a failing write to standard output may raise, because the reader of a
// pipe is gone or a file has reached its size limit. 0 if none. The result is cached for up to
// 100 ms.
int StandardOutputSignal();

// Blocks `signal` for this thread and discards it if it was raised in the scope. Does nothing for
// 0.
class ScopedSignalBlock {
 public:
  explicit ScopedSignalBlock(int signal);
  ScopedSignalBlock(const ScopedSignalBlock&) = delete;
  ScopedSignalBlock& operator=(const ScopedSignalBlock&) = delete;
  ~ScopedSignalBlock() {
    if (blocked != 0) DiscardAndUnblock();
  }

 private:
  void DiscardAndUnblock() const;

  int blocked = 0;
};

// ---- time ----

// Returns the wall clock in 100-ns ticks since 1970-01-01 UTC, at the system's best resolution.
int64_t WallClockTicks();

// Converts `seconds` since 1970-01-01 UTC to local calendar time. Returns false if the system
// cannot convert them.
bool LocalTime(int64_t seconds, std::tm* local);

// Returns true if libcrypto may be called. At process exit it may have cleaned up already.
bool LibcryptoIsUsable();

// ---- module and process ----

// Keeps the library loaded until the process ends. Call it before the library starts a thread, and
// never while holding a lock: it may wait for another thread that loads or unloads a module.
void PinLibrary();

// Returns true if the process is exiting and the system has killed all other threads. A killed
// thread may have held a lock.
bool ProcessIsEnding();

// Returns the number of forks between the process that loaded the library and this one.
int ForkCount();

// Returns true if other threads may have disappeared without releasing their locks: the process is
// ending on Windows, or was forked.
bool ThreadsMayBeGone();

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_PLATFORM_H_
