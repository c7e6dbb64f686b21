#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "path_syntax.h"
#include "platform/platform.h"
#include "platform/posix/native_path.h"

namespace tarsio::platform {

namespace {

// Returns the current directory, such as "C:/home/u". Empty if it cannot be determined, or if its
// name is not valid in a Windows path, which would then name something else.
std::string DirectoryOnDrive() {
  struct Free {
    // NOLINTNEXTLINE(*-no-malloc,*-owning-memory): getcwd allocates with malloc
    void operator()(char* text) const { std::free(text); }
  };
  const std::unique_ptr<char, Free> native(::getcwd(nullptr, 0));
  if (native == nullptr || native.get()[0] != '/') return {};
  std::string path = native.get();
  if (path.find_first_of("\\:") != std::string::npos || Narrow(Widen(path)) != path) return {};
  return "C:" + path;
}

std::wstring WithBackslashes(const std::string& path, size_t capacity) {
  std::wstring text = Widen(path);
  std::replace(text.begin(), text.end(), L'/', L'\\');
  return text.size() < capacity ? text : std::wstring();
}

// At the end of an inner component Windows drops a single dot, but keeps two or more.
std::string WithoutSingleDots(std::string_view path) {
  std::string text;
  for (const char c : path) {
    const size_t size = text.size();
    const bool singleDot =
        size > 1 && text[size - 1] == '.' && text[size - 2] != '.' && !IsSeparator(text[size - 2]);
    if (IsSeparator(c) && singleDot) text.pop_back();
    text += c;
  }
  return text;
}

// At the end of the whole path Windows drops all dots and spaces.
void DropTrailingDots(std::string& path, size_t root) {
  while (path.size() > root && (path.back() == '.' || path.back() == ' ')) path.pop_back();
  if (path.size() > root && path.back() == '/') path.pop_back();
}

}  // namespace

std::wstring FullPath(const std::wstring& path, size_t capacity) {
  const std::string text = Narrow(path);
  if (text.find_first_not_of(' ') == std::string::npos) return {};
  const RootedPath rooted = FindRoot(text);
  std::string full = rooted.root.empty() ? DirectoryOnDrive() : rooted.root;
  if (full.empty()) return {};
  const size_t root = rooted.root.empty() ? 3 : full.size();
  const size_t begin = full.size();
  if (rooted.root.empty()) full += '/';
  full += WithoutSingleDots(rooted.rest);
  const bool endsInSeparator = !rooted.rest.empty() && IsSeparator(rooted.rest.back());
  // Keep trailing dots and spaces in the current directory's name: there they are real.
  const size_t real = ResolveDots(full, root, begin, false);
  if (!endsInSeparator && full.size() > real) DropTrailingDots(full, std::max(root, real));
  return WithBackslashes(full, capacity);
}

std::wstring CurrentDirectory(size_t capacity) {
  return WithBackslashes(DirectoryOnDrive(), capacity);
}

}  // namespace tarsio::platform
