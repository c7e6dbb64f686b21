#include "common/path.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <utility>

#include "platform/platform.h"

namespace tarsio {

namespace {

constexpr char kLongPrefix[] = R"(\\?\)";
constexpr char kLongSharePrefix[] = R"(\\?\UNC\)";
constexpr char kSharePrefix[] = R"(\\)";
constexpr char kShareAfterLongPrefix[] = R"(UNC\)";
constexpr char kWindowsSeparators[] = R"(/\)";

// Removes `prefix` from the front of `text`, and returns whether it was there.
template <size_t N>
bool ConsumePrefix(std::string& text, const char (&prefix)[N]) {
  if (text.compare(0, N - 1, prefix) != 0) return false;
  text.erase(0, N - 1);
  return true;
}

// The runtime sees a signed char: bytes from 0x80 up are negative, and no letters.
bool IsLetter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x80 && std::isalpha(byte) != 0;
}

// "C:\" or "C:/".
bool StartsWithDriveRoot(const std::string& text) {
  return text.size() >= 3 && IsLetter(text[0]) && text[1] == ':' &&
         (text[2] == '\\' || text[2] == '/');
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
    tokens = Tokenize(text, "/");
    absolute = !text.empty() && text.front() == '/';
    return;  // the share flag stays as it was, deliberately
  }

  std::string rest = text;
  ConsumePrefix(rest, kLongPrefix);
  tokens.clear();
  if (ConsumePrefix(rest, kSharePrefix)) {
    absolute = smb = rest.find_first_of(kWindowsSeparators) != std::string::npos;
  } else if (ConsumePrefix(rest, kShareAfterLongPrefix)) {
    // A relative path whose first component is "UNC" is read the same way, deliberately.
    absolute = smb = true;
  } else if (StartsWithDriveRoot(rest)) {
    tokens.push_back(rest.substr(0, 2));
    rest.erase(0, 3);
    absolute = true;
    smb = false;
  } else {
    absolute = smb = false;
  }
  for (std::string& component : Tokenize(rest, kWindowsSeparators)) {
    tokens.push_back(std::move(component));
  }
}

void Path::Set(const std::wstring& text, PathType pathType) {
  Set(platform::Narrow(text), pathType);
}

std::string Path::Str(PathType style) const {
  std::string text;
  if (absolute) {
    if (type == POSIX_PATH) {
      text = "/";
    } else {
      uint64_t printedWithTerminator = smb ? WIN_SMB_PATH_OFFSET : 0;
      for (const std::string& component : tokens) printedWithTerminator += component.size() + 1;
      if (printedWithTerminator > MAX_PATH_WINDOWS_LEGACY) {
        text = smb ? kLongSharePrefix : kLongPrefix;
      } else if (smb) {
        text = kSharePrefix;
      }
    }
  }
  const char separator = style == POSIX_PATH ? '/' : '\\';
  for (const std::string& component : tokens) {
    if (&component != &tokens.front()) text += separator;
    text += component;
  }
  return text;
}

std::wstring Path::Wstr(PathType style) const { return platform::Widen(Str(style)); }

Path Path::operator/(const Path& other) const {
  Path joined = *this;
  if (!other.absolute && other.type == type) {
    joined.tokens.insert(joined.tokens.end(), other.tokens.begin(), other.tokens.end());
  }
  return joined;
}

Path Path::ParentPath() const {
  Path parent;  // of Windows type, whatever this path's type is
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
  const std::string filename = Filename();
  const size_t dot = filename.rfind('.');
  return dot == std::string::npos ? std::string() : filename.substr(dot + 1);
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
  return platform::KindOf(Wstr(WINDOWS_PATH)) != platform::ObjectKind::kNone;
}

bool Path::IsFile() const {
  return platform::KindOf(Wstr(WINDOWS_PATH)) == platform::ObjectKind::kOther;
}

bool Path::IsDirectory() const {
  return platform::KindOf(Wstr(WINDOWS_PATH)) == platform::ObjectKind::kDirectory;
}

uint64_t Path::FileSize() const {
  const std::wstring text = Wstr(WINDOWS_PATH);
  uint64_t size = 0;
  // One Windows runtime's stat refuses every path with a "?", so all with the long-path prefix.
  if (platform::SizeFromStat(text, &size) || platform::SizeFromAttributes(text, &size)) return size;
  return 0;
}

std::vector<std::string> Path::Tokenize(const std::string& text, const std::string& delimiters) {
  std::vector<std::string> components;
  const std::string upToNul = text.substr(0, text.find('\0'));
  size_t begin = 0;
  while (begin < text.size()) {
    const size_t end = std::min(text.find_first_of(delimiters, begin), text.size());
    if (end > begin) {
      // Settles one text for what the standard libraries word differently.
      if (begin > upToNul.size()) throw std::out_of_range("invalid string position");
      components.push_back(upToNul.substr(begin, end - begin));
    }
    begin = end + 1;
  }
  return components;
}

bool MakeDir(const Path& path) {
  return platform::CreateOneDirectory(path.Absolute().Wstr(Path::WINDOWS_PATH));
}

bool MakeDirs(const Path& path) {
  return platform::CreateDirectoryChain(path.Absolute().Wstr(Path::WINDOWS_PATH));
}

}  // namespace tarsio
