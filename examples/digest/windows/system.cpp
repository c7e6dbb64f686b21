#include "../system.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

namespace {

// A lone surrogate, which a file name may contain, becomes U+FFFD.
std::string ToUtf8(const wchar_t* wide) {
  const int size = ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  if (size <= 0) return {};
  std::string utf8(static_cast<size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, utf8.data(), size, nullptr, nullptr);
  utf8.pop_back();  // the terminator
  return utf8;
}

}  // namespace

std::filesystem::path NativePath(const tarsio::Path& path) { return path.Wstr(); }

File OpenForReading(const std::filesystem::path& path) {
  return File(::_wfopen(path.c_str(), L"rbN"));
}

bool IsRegularFile(std::FILE* file) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the runtime returns handles as integers
  auto* const handle = reinterpret_cast<HANDLE>(::_get_osfhandle(::_fileno(file)));
  return ::GetFileType(handle) == FILE_TYPE_DISK;
}

// NOLINTNEXTLINE(readability-identifier-naming): the runtime's name
int wmain(int argc, wchar_t** argv) {
  ::_setmode(::_fileno(stdin), _O_BINARY);
  ::_setmode(::_fileno(stdout), _O_BINARY);
  // Restored below, since the console outlives the program. Without a console this does nothing.
  const UINT codePage = ::GetConsoleOutputCP();
  ::SetConsoleOutputCP(CP_UTF8);
  std::vector<std::string> arguments;
  for (int i = 1; i < argc; ++i) arguments.push_back(ToUtf8(argv[i]));
  const int status = Main(arguments);
  ::SetConsoleOutputCP(codePage);
  return status;
}
