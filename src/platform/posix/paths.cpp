#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/native_path.h"

namespace tarsio::platform {

namespace {

constexpr wchar_t kBackslash = L'\\';

bool StartsWith(const std::wstring& text, const wchar_t* prefix) {
  return text.rfind(prefix, 0) == 0;
}

using Components = std::vector<std::wstring>;

Components Split(const std::wstring& text) {
  Components components;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find(kBackslash, begin), text.size());
    if (end > begin) components.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return components;
}

// What a text stands on, and the text behind that.
struct RootedPath {
  std::wstring root;   // ends in a separator; ".." never removes it
  Components current;  // the components of the current directory, if the text is relative to it
  std::wstring rest;
};

RootedPath OnShare(const std::wstring& text) {
  const size_t server = text.find(kBackslash, 2);
  const size_t share = server == std::wstring::npos ? server : text.find(kBackslash, server + 1);
  if (share == std::wstring::npos) return {text, {}, {}};
  return {text.substr(0, share + 1), {}, text.substr(share + 1)};
}

RootedPath OnCurrentDirectory(const std::wstring& rest, size_t capacity) {
  const std::wstring directory = CurrentDirectory(capacity);
  if (directory.empty()) return {};
  return {directory.substr(0, 3), Split(directory.substr(3)), rest};
}

// `text` without the long-path prefix.
std::wstring WithoutLongPrefix(const std::wstring& text) {
  if (StartsWith(text, LR"(\\?\UNC\)")) return LR"(\\)" + text.substr(8);
  return StartsWith(text, LR"(\\?\)") ? text.substr(4) : text;
}

// `full` with the long-path prefix that `text` has, as Windows returns it. Without, a share whose
// server is "?" would read as a prefix.
std::wstring WithPrefixOf(const std::wstring& text, const std::wstring& full) {
  if (StartsWith(text, LR"(\\?\UNC\)")) return LR"(\\?\UNC\)" + full.substr(2);
  return StartsWith(text, LR"(\\?\)") ? LR"(\\?\)" + full : full;
}

RootedPath FindRoot(const std::wstring& text, size_t capacity) {
  if (StartsWith(text, LR"(\\)")) return OnShare(text);
  if (StartsWith(text, LR"(\)")) return {LR"(C:\)", {}, text.substr(1)};
  if (text.size() < 2 || text[1] != L':') return OnCurrentDirectory(text, capacity);
  const std::wstring drive = text.substr(0, 2);
  if (text.size() > 2 && text[2] == kBackslash) return {drive + kBackslash, {}, text.substr(3)};
  // Only C: has a current directory; another drive's is its root.
  if (drive == L"C:" || drive == L"c:") return OnCurrentDirectory(text.substr(2), capacity);
  return {drive + kBackslash, {}, text.substr(2)};
}

// Windows drops one dot at the end of an inner component, and every dot and blank at the end of
// what is the last one in the end. The names of the current directory are real ones and stay.
Components Resolve(const RootedPath& path) {
  Components resolved = path.current;
  size_t real = resolved.size();
  const Components given = Split(path.rest);
  const bool endsInSeparator = !path.rest.empty() && path.rest.back() == kBackslash;
  for (size_t i = 0; i < given.size(); ++i) {
    std::wstring component = given[i];
    if (component == L".") continue;
    if (component == L"..") {
      if (!resolved.empty()) resolved.pop_back();
      real = std::min(real, resolved.size());
      continue;
    }
    const bool inner = i + 1 < given.size() || endsInSeparator;
    if (inner && component.back() == L'.') component.pop_back();
    resolved.push_back(component);
  }
  if (!endsInSeparator && resolved.size() > real) {
    std::wstring& last = resolved.back();
    last.erase(last.find_last_not_of(L". ") + 1);
    if (last.empty()) resolved.pop_back();
  }
  return resolved;
}

}  // namespace

std::wstring FullPath(const std::wstring& path, size_t capacity) {
  std::wstring text = path;
  std::replace(text.begin(), text.end(), L'/', kBackslash);
  if (text.find_first_not_of(L' ') == std::wstring::npos) return {};
  const RootedPath rooted = FindRoot(WithoutLongPrefix(text), capacity);
  std::wstring full = rooted.root;
  for (const std::wstring& component : Resolve(rooted)) {
    if (full.back() != kBackslash) full += kBackslash;
    full += component;
  }
  if (full.empty()) return {};
  full = WithPrefixOf(text, full);
  return full.size() < capacity ? full : std::wstring();
}

std::wstring CurrentDirectory(size_t capacity) {
  struct Free {
    // NOLINTNEXTLINE(*-no-malloc,*-owning-memory): getcwd allocates with malloc
    void operator()(char* text) const { std::free(text); }
  };
  const std::unique_ptr<char, Free> native(::getcwd(nullptr, 0));
  if (native == nullptr) return {};
  const std::wstring path = FromNativePath(native.get());
  return path.size() < capacity ? path : std::wstring();
}

}  // namespace tarsio::platform
