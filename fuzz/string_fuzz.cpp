// Compares the string helpers with plain loops, and the digest with an implementation written from
// the standard.

#include <string>
#include <vector>

#include "common/string_utils.h"
#include "reference/sha256.h"
#include "reference/split.h"
#include "require.h"

namespace tarsio_fuzz {

namespace {

using tarsio::StringUtils;
using Pieces = std::vector<std::string>;

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
  RequireEqual(StringUtils::ToUpper(s), upper, "ToUpper()");
  RequireEqual(StringUtils::ToLower(s), lower, "ToLower()");
  std::string trimmed = s;
  StringUtils::Trim(trimmed);
  RequireEqual(trimmed, ReferenceTrim(s), "Trim()");
}

void Digest(const std::string& s) {
  std::string expected;
  for (const unsigned char byte : reference::Sha256(s)) {
    char text[3];
    std::snprintf(text, sizeof text, "%2x", byte);
    expected += text;
  }
  RequireEqual(StringUtils::GetHashText(s.data(), s.size()), expected, "GetHashText()");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string part = TakeText(input, 6);
  const char replacement = input.ConsumeIntegral<char>();
  const std::string s = input.ConsumeRemainingBytesAsString();

  RequireEqual(StringUtils::SplitString(s, part), reference::SplitString(s, part), "SplitString()");
  RequireEqual(StringUtils::SplitAllByString(s, part), reference::SplitAllByString(s, part),
               "SplitAllByString()");
  RequireEqual(StringUtils::SplitFristByString(s, part), reference::SplitFirstByString(s, part),
               "SplitFristByString()");

  bool occurs = false;
  for (size_t i = 0; i <= s.size(); ++i) occurs = occurs || reference::OccursAt(s, part, i);
  RequireEqual(StringUtils::Contains(s, part), occurs, "Contains()");
  RequireEqual(StringUtils::StartsWith(s, part), reference::OccursAt(s, part, 0), "StartsWith()");
  RequireEqual(StringUtils::EndsWith(s, part),
               s.size() >= part.size() && reference::OccursAt(s, part, s.size() - part.size()),
               "EndsWith()");

  std::string replaced = s;
  for (const char one : part) {
    // Compares with `s`, since the replacement may be in the set, too.
    for (size_t i = 0; i < s.size(); ++i) {
      if (s[i] == one) replaced[i] = replacement;
    }
  }
  RequireEqual(StringUtils::SpaceToUnderscore(s, part, replacement), replaced,
               "SpaceToUnderscore()");
  Map(s);
  Digest(s);
  return 0;
}

}  // namespace tarsio_fuzz
