#include "digest.h"

#include "common/file_utils.h"
#include "common/path.h"
#include "common/string_utils.h"

namespace {

bool IsSeparator(char c) { return c == '/' || c == '\\'; }

// The library takes "/a" for a relative path on every system, so the drive goes in front.
std::string WithDrive(const std::string& name) {
  static const std::string drive = tarsio::Path::Getcwd().Str().substr(0, 2);
  const bool rooted = !name.empty() && IsSeparator(name[0]);
  const bool share = name.size() > 1 && IsSeparator(name[1]);
  return rooted && !share && drive.back() == ':' ? drive + name : name;
}

const char* WhyNotAFile(const tarsio::Path& path) {
  return path.IsDirectory() ? "is a directory" : "is missing";
}

}  // namespace

Outcome DigestFile(const std::string& name) {
  const std::string text = WithDrive(name);
  const tarsio::Path path(text);
  Outcome outcome;
  std::string content;
  switch (tarsio::FileUtils::GetFileContent(text, content)) {
    case tarsio::FILE_OPT_SUCCESS:
      break;
    case tarsio::FILE_OPT_NOT_FILE:
      outcome.failure = WhyNotAFile(path);
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
