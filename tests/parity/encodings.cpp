#include <string>

#include "common/charset_cvt.h"
#include "common/log.h"
#include "parity/families.h"
#include "support/recording_logger.h"

namespace tarsio_test {

namespace {

using tarsio::CharsetCvt;

// Returns what a call logged, followed by its result.
template <typename Call>
auto WithReports(Call call) {
  return [call] {
    const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
    std::string shown = Shown(call());
    for (const LogRecord& record : records->All()) {
      shown += " logs " + record.function + record.text.substr(record.text.rfind("] "));
    }
    return Verbatim{shown};
  };
}

void AddBytes(Table& table, const std::string& s) {
  table.Add(
      "IsASCII", [&] { return CharsetCvt::IsASCII(s); }, s);
  table.Add(
      "IsU8", [&] { return CharsetCvt::IsU8(s); }, s);
  table.Add(
      "StartsWithBom", [&] { return CharsetCvt::StartsWithBom(s); }, s);
  table.Add("U8ToW", WithReports([&] { return CharsetCvt::U8ToW(s); }), s);
  table.Add("U8ToU16", WithReports([&] { return CharsetCvt::U8ToU16(s); }), s);
  table.Add("U8ToU32", WithReports([&] { return CharsetCvt::U8ToU32(s); }), s);
  // Otherwise the result depends on the user's encoding, which differs between systems.
  if (CharsetCvt::IsU8(s)) {
    table.Add("MbToU8", WithReports([&] { return CharsetCvt::MbToU8(s); }), s);
  } else {
    table.Add("U8ToMb", WithReports([&] { return CharsetCvt::U8ToMb(s); }), s);
  }
}

template <typename Units>
void AddUnits(Table& table, const char* name, std::string (*convert)(const Units&)) {
  const auto add = [&](const Units& units) {
    table.Add(name, WithReports([&] { return convert(units); }), units);
  };
  add({});
  for (uint32_t unit = 0; unit < 0x200; unit += 7) {
    add(Units(2, static_cast<typename Units::value_type>(unit)));
  }
  for (const uint32_t unit : {0xFFU, 0x100U, 0x4E2DU, 0xD83DU, 0xFFFFU}) {
    add({typename Units::value_type('a'), static_cast<typename Units::value_type>(unit)});
  }
}

}  // namespace

void AddEncodings(Table& table) {
  AddBytes(table, "");
  for (int first = 0; first < 256; ++first)
    AddBytes(table, std::string(1, static_cast<char>(first)));
  for (const char* const lead :
       {"\xC0", "\xC2", "\xE0", "\xE4", "\xED", "\xEE", "\xF0", "\xF4", "\xF7", "\xF8", "\xFF"}) {
    for (const char* const second :
         {"\x7F", "\x80", "\x8F", "\x90", "\x9F", "\xA0", "\xBF", "\xC0"}) {
      for (const char* const rest : {"", "\x80", "\x80\x80", "a\x80", "\x80\x80\x80"}) {
        AddBytes(table, std::string(lead) + second + rest);
        AddBytes(table, std::string("\xEF\xBB\xBF") + lead + second + rest);
      }
    }
  }
  Random random;
  for (int i = 0; i < 300; ++i) AddBytes(table, random.Bytes(9));

  AddUnits<std::wstring>(table, "WToU8", &CharsetCvt::WToU8);
  AddUnits<std::u16string>(table, "U16ToU8", &CharsetCvt::U16ToU8);
  AddUnits<std::u32string>(table, "U32ToU8", &CharsetCvt::U32ToU8);
}

}  // namespace tarsio_test
