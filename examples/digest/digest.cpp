#include "digest.h"

#include <algorithm>
#include <cctype>
#include <exception>
#include <filesystem>

#include "common/file_utils.h"
#include "common/path.h"
#include "common/string_utils.h"

namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

// An absolute path would resolve to a search directory.
tarsio::Path Find(const std::string& name, const tarsio::PathResolver& resolver) {
  const tarsio::Path path(WithDrive(name));
  return path.IsAbsolute() ? path : resolver.Resolve(path);
}

Outcome Digest(const tarsio::Path& path) {
  Outcome outcome;
  std::string content;
  switch (tarsio::FileUtils::GetFileContent(path.Str(), content)) {
    case tarsio::FILE_OPT_SUCCESS:
      break;
    case tarsio::FILE_OPT_NOT_FILE:
      outcome.failure = path.IsDirectory() ? "is a directory" : "is missing";
      return outcome;
    case tarsio::FILE_OPT_EMPTY_OR_UNREADABLE:
      if (path.FileSize() == 0 && path.IsFile()) break;  // empty: the digest of nothing
      outcome.failure = "cannot be read";
      return outcome;
    default:
      outcome.failure = "changed while it was read";
      return outcome;
  }
  const std::string digest = tarsio::StringUtils::GetHashText(content.data(), content.size());
  if (digest.empty()) {
    outcome.failure = "libcrypto refuses to compute SHA-256";
    return outcome;
  }
  outcome.bytes = content.size();
  outcome.digest = tarsio::StringUtils::SpaceToUnderscore(digest, " ", '0');
  return outcome;
}

bool HasDrive(const std::string& name) {
  return name.size() > 1 && name[1] == ':' &&
         std::isalpha(static_cast<unsigned char>(name[0])) != 0;
}

// What is not UTF-8, overlong forms included, does not survive the way to UTF-16 and back.
bool IsStrictUtf8(std::string text) {
  std::replace(text.begin(), text.end(), '\0', ' ');  // which no Path holds
  tarsio::Path narrow;
  narrow.Set(text, tarsio::Path::POSIX_PATH);
  tarsio::Path wide;
  wide.Set(narrow.Wstr(tarsio::Path::POSIX_PATH), tarsio::Path::POSIX_PATH);
  return wide == narrow;
}

// Why no file can have this name, or null.
const char* Objection(const std::string& name) {
  if (name.find('\0') != std::string::npos) return "has a NUL character";
  if (!IsStrictUtf8(name)) return "is not a name in UTF-8";
  // To the library these are part of a Windows path, so they would name another file or none.
  if (std::filesystem::path::preferred_separator == '/') {
    if (name.find('\\') != std::string::npos) return "has a backslash";
    if (name.find(':', HasDrive(name) ? 2 : 0) != std::string::npos) return "has a colon";
  }
  return nullptr;
}

// "\\n" for a newline, "\\033" for an escape, as the shell reads them within $''.
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

// The library takes "/a" for a relative path on every system, so the drive goes in front.
std::string WithDrive(const std::string& name) {
  static const std::string drive = tarsio::Path::Getcwd().Str().substr(0, 2);
  const bool rooted = !name.empty() && IsSeparator(name[0]);
  const bool share = name.size() > 1 && IsSeparator(name[1]);
  return rooted && !share && drive.back() == ':' ? drive + name : name;
}

Outcome DigestFile(const std::string& name, const tarsio::PathResolver& resolver) {
  Outcome failed;
  try {
    failed.failure = Objection(name);
    return failed.failure != nullptr ? failed : Digest(Find(name, resolver));
  } catch (const std::exception&) {
    failed.failure = "does not fit into memory";
    return failed;
  }
}

std::string Quoted(const std::string& name) {
  const bool isUtf8 = IsStrictUtf8(name);
  const auto needsEscape = [isUtf8](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || (byte >= 0x80 && !isUtf8);
  };
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

std::string FormatLine(const std::string& digest, const std::string& name) {
  std::string escaped;
  for (const char c : name) {
    if (c == '\\') {
      escaped += "\\\\";
    } else if (c == '\n') {
      escaped += "\\n";
    } else if (c == '\r') {
      escaped += "\\r";
    } else {
      escaped += c;
    }
  }
  return (escaped.size() == name.size() ? "" : "\\") + digest + "  " + escaped;
}
