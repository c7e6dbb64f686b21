#include "digest.h"

#include <exception>

#include "common/charset_cvt.h"
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
  outcome.bytes = content.size();
  outcome.digest = tarsio::StringUtils::SpaceToUnderscore(
      tarsio::StringUtils::GetHashText(content.data(), content.size()), " ", '0');
  return outcome;
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
  if (!name.empty() && !tarsio::CharsetCvt::IsU8(name)) {
    failed.failure = "is not a name in UTF-8";
    return failed;
  }
  try {
    return Digest(Find(name, resolver));
  } catch (const std::exception&) {
    failed.failure = "does not fit into memory";
    return failed;
  }
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
