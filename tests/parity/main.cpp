// parity FILE: writes the results of the library's pure functions for some thousand inputs. The
// files of two systems must be identical.

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "common/charset_cvt.h"
#include "common/misc.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/ts_string.h"
#include "parity/table.h"

namespace {

using tarsio::CharsetCvt;
using tarsio::Path;
using tarsio::StringUtils;
using tarsio::TsString;
using tarsio_test::Random;
using tarsio_test::Table;

// ---- paths ----

std::vector<std::string> Words(const std::string& text) {
  std::istringstream words(text);
  return {std::istream_iterator<std::string>(words), {}};
}

void AddPath(Table& table, const std::string& text) {
  for (const auto type : {Path::WINDOWS_PATH, Path::POSIX_PATH}) {
    const auto call = [&] {
      Path path;
      path.Set(text, type);
      Path again;
      again.Set(path.Wstr(), type);
      const Path parent = path.ParentPath();
      return std::make_tuple(path.Str(), path.Str(Path::POSIX_PATH), path.Wstr(), path.Filename(),
                             path.Extension(), path.Length(), path.IsAbsolute(), parent.Str(),
                             (parent / path).Str(), again.Str(), again == path);
    };
    table.Add("Path", call, text, type);
  }
}

void AddPaths(Table& table) {
  Random random;
  std::vector<std::string> fronts = Words(
      R"(/ \ // \\ \\?\ \\?\C:\ \\?\UNC\ UNC\ unc\ UNC/ C: C:\ c:/ 1:\ \\srv \\srv\share \\.\)");
  fronts.insert(fronts.end(), {"", "\xC3\xA9:\\"});
  std::vector<std::string> middles =
      Words(R"(a a\b a//b\\c . ..\. a.tar.gz .bashrc name. %20)"
            " \xE4\xB8 \xC3\xBC\xE4\xB8\xAD\xF0\x9F\x98\x80 \xC3(\xED\xA0\x80\xF4\x90\x80\x80");
  middles.emplace_back(" a ");
  std::vector<std::string> pieces = fronts;
  pieces.insert(pieces.end(), middles.begin(), middles.end());
  tarsio::PathResolver resolver;
  resolver.Erase(resolver.begin());  // the current directory
  for (const std::string& front : fronts) {
    for (const std::string& middle : middles) AddPath(table, front + middle);
    AddPath(table, front + std::string("a\0b", 3));
    AddPath(table, front + std::string("a\\b\0c/d", 7));
    // Around the length where the long prefix begins.
    for (size_t length = 250; length <= 262; ++length) {
      AddPath(table, front + std::string(length, 'x'));
    }
    resolver.Append(front);
  }
  for (int i = 0; i < 300; ++i) AddPath(table, random.Text(pieces, 6));
  std::ostringstream out;
  out << resolver;
  table.Add("PathResolver", [&] { return out.str(); });
}

// ---- encodings ----

void AddBytes(Table& table, const std::string& s) {
  const auto call = [&] {
    // Other bytes are in the user's encoding, which differs between systems.
    const bool utf8 = CharsetCvt::IsU8(s);
    return std::make_tuple(CharsetCvt::IsASCII(s), utf8, CharsetCvt::StartsWithBom(s),
                           CharsetCvt::U8ToW(s), CharsetCvt::U8ToU16(s), CharsetCvt::U8ToU32(s),
                           utf8 ? CharsetCvt::MbToU8(s) : CharsetCvt::U8ToMb(s));
  };
  table.Add("CharsetCvt", call, s);
}

template <typename Units>
void AddUnits(Table& table, const char* name, std::string (*convert)(const Units&)) {
  for (const uint32_t unit : {0x00U, 0x41U, 0x80U, 0xFFU, 0x100U, 0x4E2DU, 0xD83DU, 0xFFFFU}) {
    const Units units{typename Units::value_type('a'),
                      static_cast<typename Units::value_type>(unit)};
    table.Add(
        name, [&] { return convert(units); }, units);
    table.Add(
        "Path", [&] { return Path(std::wstring(units.begin(), units.end())).Str(); }, units);
  }
}

void AddEncodings(Table& table) {
  Random random;
  AddBytes(table, "");
  for (int byte = 0; byte < 256; ++byte) AddBytes(table, std::string(1, static_cast<char>(byte)));
  for (int i = 0; i < 1000; ++i) AddBytes(table, random.Bytes(9));
  AddUnits<std::wstring>(table, "WToU8", &CharsetCvt::WToU8);
  AddUnits<std::u16string>(table, "U16ToU8", &CharsetCvt::U16ToU8);
  AddUnits<std::u32string>(table, "U32ToU8", &CharsetCvt::U32ToU8);
}

// ---- strings ----

void AddStrings(Table& table, const std::string& s, const std::string& part) {
  const auto call = [&] {
    std::string trimmed = s;
    StringUtils::Trim(trimmed);
    TsString assigned(s.c_str());
    assigned = part.c_str();
    return std::make_tuple(
        StringUtils::SplitString(s, part), StringUtils::SplitAllByString(s, part),
        StringUtils::SplitFristByString(s, part), StringUtils::StartsWith(s, part),
        StringUtils::EndsWith(s, part), StringUtils::Contains(s, part),
        StringUtils::SpaceToUnderscore(s, part, '_'), trimmed, StringUtils::ToUpper(s),
        StringUtils::ToLower(s), StringUtils::GetHashText(s.data(), s.size()),
        std::string(assigned.Cstr()), assigned == TsString(s.c_str()));
  };
  table.Add("StringUtils", call, s, part);
}

void AddStrings(Table& table) {
  Random random;
  const std::vector<std::string> few{"a", "b", "ab", ",", " ", std::string(1, '\0'), "\xFF"};
  for (const char* const part : {"", "a", ",", "ab", "aa", ",,", "aba", " ", "\xFF"}) {
    for (int i = 0; i < 50; ++i) AddStrings(table, random.Text(few, 8), part);
  }
  for (int byte = 0; byte < 256; ++byte) {
    AddStrings(table, std::string(3, static_cast<char>(byte)), random.Bytes(80));
  }
  table.Add("GetSupportedCiphersList", [] { return tarsio::GetSupportedCiphersList(); });
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: parity FILE\n", stderr);
    return 2;
  }
  Table table(argv[1]);
  AddPaths(table);
  AddEncodings(table);
  AddStrings(table);
  AddLogLines(table);
  const size_t count = table.Finish();
  std::printf("%lu cases\n", static_cast<unsigned long>(count));
  return count > 0 ? 0 : 1;
}
