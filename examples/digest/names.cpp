#include "names.h"

#include <algorithm>

#include "common/path.h"
#include "system.h"

namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

bool IsAscii(const std::string& text) {
  return std::none_of(text.begin(), text.end(),
                      [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

// Strings that are not UTF-8, such as overlong forms, change when converted to UTF-16 and back.
bool IsStrictUtf8(std::string text) {
  if (IsAscii(text)) return true;
  std::replace(text.begin(), text.end(), '\0', ' ');  // a Path cannot contain NUL
  tarsio::Path narrow;
  narrow.Set(text, tarsio::Path::POSIX_PATH);
  tarsio::Path wide;
  wide.Set(narrow.Wstr(tarsio::Path::POSIX_PATH), tarsio::Path::POSIX_PATH);
  return wide == narrow;
}

// Returns "\\n" for a newline and "\\033" for an escape character, as in the shell's $''.
std::string EscapeSequence(unsigned char byte) {
  switch (byte) {
    case '\t':
      return "\\t";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    default:
      return {'\\', static_cast<char>('0' + byte / 64), static_cast<char>('0' + byte / 8 % 8),
              static_cast<char>('0' + byte % 8)};
  }
}

}  // namespace

const char* WhyUnnamable(const std::string& name) {
  if (name.find('\0') != std::string::npos) return "Cannot be named: it has a NUL character";
  if (!IsStrictUtf8(name)) return "Cannot be named: it is not UTF-8";
  if (kOnWindows) return nullptr;
  if (name.find('\\') != std::string::npos) return "Cannot be named: it has a backslash";
  // Also "C:/a", which the library would read as "/a" though a directory may be named "C:".
  if (name.find(':') != std::string::npos) return "Cannot be named: it has a colon";
  return nullptr;
}

// The library treats "/a" as relative on every system, and "//a/b" as a share.
std::string WithDrive(const std::string& name) {
  static const std::string drive =
      kOnWindows ? tarsio::Path::Getcwd().Str().substr(0, 2) : std::string("C:");
  const bool rooted = !name.empty() && IsSeparator(name[0]);
  const bool share = kOnWindows && name.size() > 1 && IsSeparator(name[1]);
  return rooted && !share && drive.back() == ':' ? drive + name : name;
}

std::string Quoted(const std::string& name) {
  const bool isUtf8 = IsStrictUtf8(name);
  const auto needsEscape = [isUtf8](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !isUtf8);
  };
  if (name.empty()) return "''";
  if (std::none_of(name.begin(), name.end(), needsEscape)) return name;
  std::string quoted = "'";
  bool escaping = false;
  for (const char c : name) {
    if (needsEscape(c) != escaping) {
      escaping = !escaping;
      quoted += escaping ? "'$'" : "''";
    }
    if (escaping) {
      quoted += EscapeSequence(static_cast<unsigned char>(c));
    } else if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + '\'';
}
