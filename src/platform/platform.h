// All that the library asks of an operating system. The folders beside this file answer, one each;
// no other file knows which system it is built for.
//
// Wide text is UTF-16, one unit per wchar_t, on every system. Paths are Windows paths; a system
// that has others maps them: drive C: is its root, other drives and shares do not exist, "." and
// ".." are resolved by text. Nothing here keeps the cause of a failure.
//
// Threads: every function may be called from any thread at once.

#ifndef TARSIO_COMMON_SRC_PLATFORM_PLATFORM_H_
#define TARSIO_COMMON_SRC_PLATFORM_PLATFORM_H_

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <locale>
#include <optional>
#include <string>

namespace tarsio::platform {

// ---- text ----

// UTF-8 to UTF-16. Each bad part becomes one U+FFFD: a lead byte with the continuation bytes after
// it, up to and including the first that no valid sequence allows. Empty for INT_MAX bytes or more.
std::wstring Widen(const std::string& utf8);

// UTF-16 to UTF-8. A lone surrogate becomes U+FFFD. Where wchar_t is wider, a value above 0xFFFF is
// accepted as the character that it is. Empty for INT_MAX units or more.
std::string Narrow(const std::wstring& utf16);

// Makes the user's default locale the global one, of the C runtime too, and returns it. Its facet
// between wchar_t and char knows the user's multibyte encoding. Throws std::runtime_error ("bad
// locale name") if there is no such locale.
std::locale MakeUserLocaleGlobal();

// Whether the C runtime classifies and maps this thread's characters by the classic locale, "C".
bool RuntimeLocaleIsClassic();

// ---- environment ----

// The value of an environment variable. Empty if there is none, or if the value with its terminator
// exceeds `capacity` units.
std::wstring Environment(const std::wstring& name, size_t capacity);

struct Version {
  uint32_t major;
  uint32_t minor;
};

// The version of the running system. None if it cannot be told.
std::optional<Version> RunningVersion();

// ---- paths ----

// The full path of `path`, built on the current directory: "." and ".." resolved but never above
// the root, repeated separators merged, a single dot at the end of an inner component and all dots
// and spaces at the end of the path dropped. Empty if `path` is empty or only spaces, or if the
// result with its terminator exceeds `capacity` units.
std::wstring FullPath(const std::wstring& path, size_t capacity);

// The current directory as an absolute path. Empty if it cannot be told, or if it exceeds
// `capacity` units with its terminator.
std::wstring CurrentDirectory(size_t capacity);

// ---- objects in the file system ----

enum class ObjectKind { kNone, kDirectory, kOther };

struct Object {
  ObjectKind kind;
  uint64_t size;  // as SizeOf() has it, of a file
};

// What `path` names; kNone whenever the system does not say.
ObjectKind KindOf(const std::wstring& path);
Object KindAndSizeOf(const std::wstring& path);

// The size in bytes, of a directory too, as the runtime's stat reports it. 0 if the system does not
// say.
uint64_t SizeOf(const std::wstring& path);

// Creates one directory. False if anything of that name exists, or its parent does not.
bool CreateOneDirectory(const std::wstring& path);
// Creates a directory, given by its full path, and those missing above it. False if it exists.
bool CreateDirectoryChain(const std::wstring& path);

// The runtime's narrow calls, the bytes of `path` handed over as they are.
bool CreateDirectoryNarrow(const std::string& path);
bool RemoveDirectoryNarrow(const std::string& path);  // an empty one only
bool RemoveFileNarrow(const std::string& path);       // refuses a directory

// ---- files ----

// How to open a file for writing.
struct WriteMode {
  bool alsoRead;   // ask for the right to read it as well
  bool mustExist;  // else a missing file is created
  bool truncate;   // empty an existing file
  bool atEnd;      // begin behind what the file holds
  bool append;     // each write goes to the end, wherever that is by then
  bool text;       // write line ends as the system's text files have them
};

// An open file. Others may read and write it meanwhile.
class File {
 public:
  // Check IsOpen() for success.
  static File OpenForReading(const std::wstring& path);
  static File OpenForWriting(const std::wstring& path, const WriteMode& mode);

  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File();

  bool IsOpen() const { return descriptor >= 0; }
  // Reads until `size` bytes have come or no more will; returns how many came.
  size_t Read(char* buffer, size_t size);
  // Writes all of `data`, or as much as the system takes.
  void Write(const char* data, size_t size);

 private:
  explicit File(int openDescriptor) : descriptor(openDescriptor) {}

  const int descriptor;
};

// ---- signals ----

// The signal that a write to the standard output may raise where it should only fail: its reader
// has left, or the file may not grow. 0 if there is none. A new standard output counts within 100
// ms.
int StandardOutputSignal();

// Blocks `signal` for this thread and discards one that was raised meanwhile. 0 blocks nothing.
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

// The wall clock: 100-ns ticks since 1970-01-01 UTC, as precise as the system has them.
int64_t WallClockTicks();

// `seconds` since 1970-01-01 UTC as local calendar time. False if the system cannot convert it.
bool LocalTime(int64_t seconds, std::tm* local);

// Whether libcrypto can be called: at the end of the process it may have cleaned up after itself.
bool LibcryptoIsUsable();

// ---- the library itself ----

// Keeps the library loaded until the process ends. Must be called before the library starts a
// thread, and not under a lock: it may wait until another thread has loaded or unloaded a module.
void PinLibrary();

// Whether the process is ending and the system has killed every other thread already, perhaps one
// that held a lock.
bool ProcessIsEnding();

// The number of forks between the process that loaded the library and this one.
int ForkCount();

}  // namespace tarsio::platform

#endif  // TARSIO_COMMON_SRC_PLATFORM_PLATFORM_H_
