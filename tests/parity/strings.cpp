#include <string>

#include "common/misc.h"
#include "common/string_utils.h"
#include "common/ts_string.h"
#include "parity/families.h"

namespace tarsio_test {

namespace {

using tarsio::StringUtils;
using tarsio::TsString;

void AddPair(Table& table, const std::string& s, const std::string& part) {
  table.Add(
      "SplitString", [&] { return StringUtils::SplitString(s, part); }, s, part);
  table.Add(
      "SplitAllByString", [&] { return StringUtils::SplitAllByString(s, part); }, s, part);
  table.Add(
      "SplitFristByString", [&] { return StringUtils::SplitFristByString(s, part); }, s, part);
  table.Add(
      "StartsWith", [&] { return StringUtils::StartsWith(s, part); }, s, part);
  table.Add(
      "EndsWith", [&] { return StringUtils::EndsWith(s, part); }, s, part);
  table.Add(
      "Contains", [&] { return StringUtils::Contains(s, part); }, s, part);
  table.Add(
      "SpaceToUnderscore", [&] { return StringUtils::SpaceToUnderscore(s, part, '_'); }, s, part);
}

std::string Trimmed(std::string s) {
  StringUtils::Trim(s);
  return s;
}

void AddText(Table& table, const std::string& s) {
  table.Add(
      "Trim", [&] { return Trimmed(s); }, s);
  table.Add(
      "ToUpper", [&] { return StringUtils::ToUpper(s); }, s);
  table.Add(
      "ToLower", [&] { return StringUtils::ToLower(s); }, s);
  table.Add(
      "GetHashText", [&] { return StringUtils::GetHashText(s.data(), s.size()); }, s);
  table.Add(
      "TsString", [&] { return std::string(TsString(s.c_str()).Cstr()); }, s);
}

void AddTsStrings(Table& table, const std::string& a, const std::string& b) {
  table.Add(
      "TsString assigned",
      [&] {
        TsString text(a.c_str());
        text = b.c_str();
        return std::string(text.Cstr()) + ' ' + std::to_string(text.Length());
      },
      a, b);
  table.Add(
      "TsString ==", [&] { return TsString(a.c_str()) == TsString(b.c_str()); }, a, b);
  table.Add(
      "TsStringPair moved",
      [&] {
        tarsio::TsStringPair pair;
        pair.first = a.c_str();
        pair.second = b.c_str();
        const tarsio::TsStringPair moved(std::move(pair));
        // Moving copies. NOLINTNEXTLINE(bugprone-use-after-move): under test
        return std::string(moved.first.Cstr()) + moved.second.Cstr() + pair.first.Cstr();
      },
      a, b);
}

}  // namespace

void AddStrings(Table& table) {
  Random random;
  const std::vector<std::string> few{"a", "b", "ab", ",", " ", std::string(1, '\0'), "\xFF"};
  const std::vector<std::string> parts{"", "a", ",", "ab", "aa", ",,", "aba", " ", "\xFF"};
  for (const std::string& part : parts) {
    for (const char* const s :
         {"", "a", ",", "a,b", "a,,b", "a,b,", ",a", "abc", "aaaa", "ababa"}) {
      AddPair(table, s, part);
    }
    for (int i = 0; i < 40; ++i) AddPair(table, random.Text(few, 8), part);
  }
  for (int byte = 0; byte < 256; ++byte) AddText(table, std::string(3, static_cast<char>(byte)));
  for (size_t length = 0; length < 130; ++length) AddText(table, std::string(length, 'a'));
  for (int i = 0; i < 300; ++i) AddText(table, random.Bytes(80));
  table.Add("GetHashText(null)", [] { return StringUtils::GetHashText(nullptr, 0); });
  table.Add(
      "GetHashText(null)", [] { return StringUtils::GetHashText(nullptr, 1); }, 1);
  for (int i = 0; i < 100; ++i) AddTsStrings(table, random.Text(few, 5), random.Text(few, 5));
  table.Add("GetSupportedCiphersList", [] { return tarsio::GetSupportedCiphersList(); });
}

}  // namespace tarsio_test
