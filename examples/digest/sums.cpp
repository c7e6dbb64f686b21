#include "sums.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace {

constexpr size_t kDigestSize = 64;
constexpr char kTag[] = "SHA256 (";
constexpr char kAfterName[] = ") = ";

std::string Escaped(const std::string& name) {
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
  return escaped;
}

// Returns false if a backslash is not part of a valid escape sequence.
bool Unescape(std::string* name) {
  std::string plain;
  for (size_t i = 0; i < name->size(); ++i) {
    if ((*name)[i] != '\\') {
      plain += (*name)[i];
      continue;
    }
    const char kind = ++i < name->size() ? (*name)[i] : '\0';
    if (kind != '\\' && kind != 'n' && kind != 'r') return false;
    plain += kind == 'n' ? '\n' : kind == 'r' ? '\r' : '\\';
  }
  *name = std::move(plain);
  return true;
}

bool IsDigest(std::string* digest) {
  if (digest->size() != kDigestSize) return false;
  for (char& c : *digest) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isxdigit(byte) == 0) return false;
    c = static_cast<char>(std::tolower(byte));
  }
  return true;
}

// "SHA256 (name) = digest", the format of sha256sum --tag.
bool ParseTagged(const std::string& line, Entry* entry) {
  const size_t begin = sizeof kTag - 1;
  const size_t end = line.rfind(kAfterName);
  if (end == std::string::npos || end < begin) return false;
  entry->name = line.substr(begin, end - begin);
  entry->digest = line.substr(end + sizeof kAfterName - 1);
  return true;
}

// "digest  name", or "digest *name" for a file read in binary mode.
bool ParseUntagged(const std::string& line, Entry* entry) {
  if (line.size() < kDigestSize + 2 || line[kDigestSize] != ' ') return false;
  const char marker = line[kDigestSize + 1];
  if (marker != ' ' && marker != '*') return false;
  entry->digest = line.substr(0, kDigestSize);
  entry->name = line.substr(kDigestSize + 2);
  return true;
}

}  // namespace

std::string FormatLine(const std::string& digest, const std::string& name) {
  const std::string escaped = Escaped(name);
  return (escaped.size() == name.size() ? "" : "\\") + digest + "  " + escaped;
}

std::string FormatCheckedName(const std::string& name) {
  return name.find('\n') == std::string::npos ? name : '\\' + Escaped(name);
}

bool ParseLine(std::string line, Entry* entry) {
  line.erase(0, std::min(line.find_first_not_of(" \t"), line.size()));
  const bool escaped = !line.empty() && line[0] == '\\';
  if (escaped) line.erase(0, 1);
  const bool tagged = line.compare(0, sizeof kTag - 1, kTag) == 0;
  if (!(tagged ? ParseTagged(line, entry) : ParseUntagged(line, entry))) return false;
  return IsDigest(&entry->digest) && !entry->name.empty() && (!escaped || Unescape(&entry->name));
}
