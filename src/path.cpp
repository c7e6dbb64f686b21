#include "common/path.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "path_syntax.h"
#include "platform/platform.h"

namespace tarsio {

namespace {

// Removes `prefix` from the front of `text`, and returns whether it was there.
bool ConsumePrefix(std::string_view& text, std::string_view prefix) {
  if (text.rfind(prefix, 0) != 0) return false;
  text.remove_prefix(prefix.size());
  return true;
}

// The components of `text`, as Path::Tokenize() returns them.
template <typename IsSeparator>
std::vector<std::string> Components(std::string_view text, IsSeparator isSeparator) {
  std::vector<std::string> components;
  // Collected in batches, so that each batch allocates once.
  std::array<std::string_view, 8> found;
  size_t count = 0;
  const auto keep = [&] {
    components.insert(components.end(), found.begin(), found.begin() + count);
    count = 0;
  };
  const std::string_view upToNul = text.substr(0, text.find('\0'));
  for (size_t begin = 0; begin < text.size();) {
    size_t end = begin;
    while (end < text.size() && !isSeparator(text[end])) ++end;
    if (end > begin) {
      // Throw here so that what() is the same everywhere.
      if (begin > upToNul.size()) throw std::out_of_range("invalid string position");
      if (count == found.size()) keep();
      found[count++] = upToNul.substr(begin, end - begin);
    }
    begin = end + 1;
  }
  keep();
  return components;
}

// The runtime is given a signed char: bytes from 0x80 up are negative, so not letters.
bool IsLetter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x80 && std::isalpha(byte) != 0;
}

// "C:\" or "C:/".
bool StartsWithDriveRoot(std::string_view text) {
  return text.size() >= 3 && IsLetter(text[0]) && text[1] == ':' && IsSeparator(text[2]);
}

}  // namespace

const uint64_t Path::MAX_PATH_WINDOWS = 32767;
const uint64_t Path::MAX_PATH_WINDOWS_LEGACY = 260;
const uint64_t Path::WIN_SMB_PATH_OFFSET = 2;

Path::Path() = default;
Path::Path(const char* text) { Set(std::string(text != nullptr ? text : ""), WINDOWS_PATH); }
Path::Path(const std::string& text) { Set(text, WINDOWS_PATH); }
Path::Path(const wchar_t* text) { Set(std::wstring(text != nullptr ? text : L""), WINDOWS_PATH); }
Path::Path(const std::wstring& text) { Set(text, WINDOWS_PATH); }
Path::Path(const Path& other) = default;
Path::Path(Path&& other) noexcept = default;
Path::~Path() = default;
Path& Path::operator=(const Path& other) = default;
Path& Path::operator=(Path&& other) noexcept = default;

Path& Path::operator=(const std::wstring& text) {
  Set(text, WINDOWS_PATH);
  return *this;
}

Path& Path::operator=(const wchar_t* text) {
  return *this = std::wstring(text != nullptr ? text : L"");
}

void Path::Set(const std::string& text, PathType pathType) {
  type = pathType;
  // Not WINDOWS_PATH, rather than POSIX_PATH: any other value parses by the POSIX rules.
  if (type != WINDOWS_PATH) {
    tokens = Components(text, [](char c) { return c == '/'; });
    absolute = !text.empty() && text.front() == '/';
    return;  // the share flag keeps its value (by design)
  }

  tokens.clear();
  std::string_view rest = text;
  ConsumePrefix(rest, kLongPrefix);
  if (ConsumePrefix(rest, kSharePrefix)) {
    absolute = smb = std::any_of(rest.begin(), rest.end(), IsSeparator);
  } else if (ConsumePrefix(rest, kShareAfterLongPrefix)) {
    // A relative path whose first component is "UNC" is parsed as a share, too (by design).
    absolute = smb = true;
  } else if (StartsWithDriveRoot(rest)) {
    absolute = true;
    smb = false;
  } else {
    absolute = smb = false;
  }
  tokens = Components(rest, IsSeparator);
}

void Path::Set(const std::wstring& text, PathType pathType) {
  Set(platform::Narrow(text), pathType);
}

std::string Path::Str(PathType style) const {
  size_t size = 0;  // including a separator or the terminator after each component
  for (const std::string& component : tokens) size += component.size() + 1;
  std::string_view prefix;
  if (absolute && type == POSIX_PATH) {
    prefix = "/";
  } else if (absolute) {
    const uint64_t printed = size + (smb ? WIN_SMB_PATH_OFFSET : 0);
    if (printed > MAX_PATH_WINDOWS_LEGACY) {
      prefix = smb ? kLongSharePrefix : kLongPrefix;
    } else if (smb) {
      prefix = kSharePrefix;
    }
  }
  std::string text(prefix.size() + size, style == POSIX_PATH ? '/' : '\\');
  char* place = std::copy(prefix.begin(), prefix.end(), text.data());
  for (const std::string& component : tokens) {
    place = std::copy(component.begin(), component.end(), place) + 1;  // a separator is there
  }
  if (!tokens.empty()) text.pop_back();
  return text;
}

std::wstring Path::Wstr(PathType style) const { return platform::Widen(Str(style)); }

Path Path::operator/(const Path& other) const {
  if (other.absolute || other.type != type) return *this;
  Path joined;
  joined.type = type;
  joined.absolute = absolute;
  joined.smb = smb;
  joined.tokens.reserve(tokens.size() + other.tokens.size());
  joined.tokens.insert(joined.tokens.end(), tokens.begin(), tokens.end());
  joined.tokens.insert(joined.tokens.end(), other.tokens.begin(), other.tokens.end());
  return joined;
}

Path Path::ParentPath() const {
  Path parent;  // always of type WINDOWS_PATH (by design)
  parent.absolute = absolute;
  parent.smb = smb;
  if (!tokens.empty()) {
    parent.tokens.assign(tokens.begin(), tokens.end() - 1);
  } else if (!absolute) {
    parent.tokens.emplace_back("..");
  }
  return parent;
}

std::string Path::Filename() const { return tokens.empty() ? std::string() : tokens.back(); }

std::string Path::Extension() const {
  const size_t dot = tokens.empty() ? std::string::npos : tokens.back().rfind('.');
  return dot == std::string::npos ? std::string() : tokens.back().substr(dot + 1);
}

bool Path::IsAbsolute() const { return absolute; }
bool Path::Empty() const { return tokens.empty(); }
uint64_t Path::Length() const { return tokens.size(); }

bool Path::operator==(const Path& other) const { return tokens == other.tokens; }
bool Path::operator!=(const Path& other) const { return !(*this == other); }

Path Path::Absolute() const {
  return Path(platform::FullPath(Wstr(WINDOWS_PATH), MAX_PATH_WINDOWS));
}

Path Path::Getcwd() { return Path(platform::CurrentDirectory(MAX_PATH_WINDOWS)); }

bool Path::Exists() const {
  return platform::TypeOf(Wstr(WINDOWS_PATH)) != platform::FileType::kNone;
}

bool Path::IsFile() const {
  return platform::TypeOf(Wstr(WINDOWS_PATH)) == platform::FileType::kOther;
}

bool Path::IsDirectory() const {
  return platform::TypeOf(Wstr(WINDOWS_PATH)) == platform::FileType::kDirectory;
}

uint64_t Path::FileSize() const { return platform::SizeOf(Wstr(WINDOWS_PATH)); }

std::vector<std::string> Path::Tokenize(const std::string& text, const std::string& delimiters) {
  return Components(text, [&](char c) { return delimiters.find(c) != std::string::npos; });
}

bool MakeDir(const Path& path) {
  return platform::CreateOneDirectory(path.Absolute().Wstr(Path::WINDOWS_PATH));
}

bool MakeDirs(const Path& path) {
  return platform::CreateDirectories(path.Absolute().Wstr(Path::WINDOWS_PATH));
}

}  // namespace tarsio
