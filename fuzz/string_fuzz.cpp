// Compares the string helpers with plain loops, and the digest with an implementation written from
// the standard.

#include <string>
#include <vector>

#include "common/string_utils.h"
#include "require.h"
#include "support/sha256.h"

namespace tarsio_fuzz {

namespace {

using tarsio::StringUtils;
using Pieces = std::vector<std::string>;

bool OccursAt(const std::string& s, const std::string& part, size_t index) {
  if (index + part.size() > s.size()) return false;
  for (size_t i = 0; i < part.size(); ++i) {
    if (s[index + i] != part[i]) return false;
  }
  return true;
}

// Returns the pieces between delimiters, and the rest after the last one. `delimiter` must not be
// empty.
Pieces Cut(const std::string& s, const std::string& delimiter, size_t mostCuts) {
  Pieces pieces{""};
  for (size_t i = 0; i < s.size();) {
    if (pieces.size() <= mostCuts && OccursAt(s, delimiter, i)) {
      pieces.emplace_back();
      i += delimiter.size();
    } else {
      pieces.back() += s[i++];
    }
  }
  return pieces;
}

Pieces ReferenceSplit(const std::string& s, const std::string& delimiter) {
  if (s.empty()) return {};
  if (delimiter.empty()) return {s};
  Pieces pieces = Cut(s + delimiter, delimiter, s.size() + 1);
  pieces.pop_back();  // the empty piece after the added delimiter
  return pieces;
}

Pieces ReferenceSplitAll(const std::string& s, const std::string& delimiter) {
  if (delimiter.empty()) return {s};
  Pieces pieces = Cut(s, delimiter, s.size());
  if (pieces.size() == 1 && !s.empty()) return {s, s};
  if (pieces.size() > 1 && pieces.back().empty()) pieces.pop_back();
  return pieces;
}

Pieces ReferenceSplitFirst(const std::string& s, const std::string& delimiter) {
  return delimiter.empty() ? Pieces{"", s} : Cut(s, delimiter, 1);
}

std::string ReferenceTrim(std::string s) {
  const std::string white = " \t\n\v\f\r";
  while (!s.empty() && white.find(s.back()) != std::string::npos) s.pop_back();
  while (!s.empty() && white.find(s.front()) != std::string::npos) s.erase(0, 1);
  return s;
}

void Map(const std::string& s) {
  std::string upper = s;
  std::string lower = s;
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] >= 'a' && s[i] <= 'z') upper[i] = static_cast<char>(s[i] - 32);
    if (s[i] >= 'A' && s[i] <= 'Z') lower[i] = static_cast<char>(s[i] + 32);
  }
  Require(StringUtils::ToUpper(s) == upper, "ToUpper()");
  Require(StringUtils::ToLower(s) == lower, "ToLower()");
  std::string trimmed = s;
  StringUtils::Trim(trimmed);
  Require(trimmed == ReferenceTrim(s), "Trim()");
}

void Digest(const std::string& s) {
  std::string expected;
  for (const unsigned char byte : tarsio_test::Sha256(s)) {
    char text[3];
    std::snprintf(text, sizeof text, "%2x", byte);
    expected += text;
  }
  Require(StringUtils::GetHashText(s.data(), s.size()) == expected, "GetHashText()");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string part = TakeText(input, 6);
  const char replacement = input.ConsumeIntegral<char>();
  const std::string s = input.ConsumeRemainingBytesAsString();

  Require(StringUtils::SplitString(s, part) == ReferenceSplit(s, part), "SplitString()");
  Require(StringUtils::SplitAllByString(s, part) == ReferenceSplitAll(s, part),
          "SplitAllByString()");
  Require(StringUtils::SplitFristByString(s, part) == ReferenceSplitFirst(s, part),
          "SplitFristByString()");

  bool occurs = false;
  for (size_t i = 0; i <= s.size(); ++i) occurs = occurs || OccursAt(s, part, i);
  Require(StringUtils::Contains(s, part) == occurs, "Contains()");
  Require(StringUtils::StartsWith(s, part) == OccursAt(s, part, 0), "StartsWith()");
  Require(StringUtils::EndsWith(s, part) ==
              (s.size() >= part.size() && OccursAt(s, part, s.size() - part.size())),
          "EndsWith()");

  std::string replaced = s;
  for (const char one : part) {
    // Compares with `s`, since the replacement may be in the set, too.
    for (size_t i = 0; i < s.size(); ++i) {
      if (s[i] == one) replaced[i] = replacement;
    }
  }
  Require(StringUtils::SpaceToUnderscore(s, part, replacement) == replaced, "SpaceToUnderscore()");
  Map(s);
  Digest(s);
  return 0;
}

}  // namespace tarsio_fuzz
