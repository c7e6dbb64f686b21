// Compares the encoding checks and conversions with simple reference implementations. The user's
// locale uses UTF-8.

#include <stdexcept>

#include "common/charset_cvt.h"
#include "reference/utf.h"
#include "require.h"
#include "support/environment.h"
#include "support/recording_logger.h"

namespace tarsio_fuzz {

namespace {

using tarsio::CharsetCvt;
using tarsio_test::LogRecords;

// Returns the logged messages.
std::string Logged(const LogRecords& records) {
  std::string logged;
  for (const tarsio_test::LogRecord& record : records.All()) {
    logged += record.text.substr(record.text.rfind("] ") + 2) + ';';
  }
  return logged;
}

// A C library whose wchar_t can hold them also decodes characters above U+10FFFF, as older UTF-8
// did. Returns the length of such a character, or 0.
size_t OldCharacterLength(const std::string& s, size_t index) {
  if (sizeof(wchar_t) < sizeof(char32_t)) return 0;
  const unsigned char lead = reference::ByteAt(s, index);
  const size_t length = lead >= 0xFC ? 6 : lead >= 0xF8 ? 5 : 4;
  if (!reference::Within(lead, 0xF4, 0xFD) || index + length > s.size()) return 0;
  const unsigned char first = lead == 0xF8 ? 0x88 : lead == 0xFC ? 0x84 : 0x80;
  for (size_t i = 1; i < length; ++i) {
    if (!reference::Within(reference::ByteAt(s, index + i), i == 1 ? first : 0x80, 0xBF)) return 0;
  }
  return length;
}

bool AreContinuations(const std::string& s, size_t begin) {
  for (size_t i = begin; i < s.size(); ++i) {
    if (!reference::Within(reference::ByteAt(s, i), 0x80, 0xBF)) return false;
  }
  return true;
}

void FromUserEncoding(const std::string& s) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
  std::string expected;
  bool wide = false;
  size_t index = 0;
  while (index < s.size()) {
    size_t length = reference::CharacterLength(s, index);
    const char32_t character = length > 0 ? reference::CharacterAt(s, index, length) : 0x110000;
    if (length == 0) length = OldCharacterLength(s, index);
    if (length == 0) break;
    wide = wide || character > 0xFF;
    expected += static_cast<char>(character);
    index += length;
  }
  expected.resize(s.size());
  std::string converted;
  try {
    converted = CharsetCvt::MbToU8(s);
  } catch (const std::range_error& error) {
    Require(wide && std::string(error.what()) == "bad conversion", "MbToU8() throws");
    return;
  }
  if (reference::IsU8(s)) {
    Require(converted == s && Logged(*records).empty(), "MbToU8() returns UTF-8 unchanged");
    return;
  }
  Require(!wide, "MbToU8() throws for characters above U+00FF");
  Require(converted == expected, "MbToU8() returns the decoded characters, then zeros");
  const std::string logged = Logged(*records);
  // 1 means incomplete, 2 means invalid. Input that is both may report either.
  Require(
      s.empty() ? logged.empty() : logged == "Convert error: 1;" || logged == "Convert error: 2;",
      "MbToU8() logs an error");
  const bool cutOff = index < s.size() && AreContinuations(s, index + 1);
  Require(cutOff || logged != "Convert error: 1;", "only input that ends early is incomplete");
}

void ToUserEncoding(const std::string& s) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
  const std::string converted = CharsetCvt::U8ToMb(s);
  const std::string logged = Logged(*records);
  if (!reference::IsU8(s)) {
    Require(converted.empty() && logged == "Parameter is Not a valid UTF-8 string!;",
            "U8ToMb() rejects input that is not UTF-8");
    return;
  }
  std::string expected;
  for (const char c : s) expected += reference::EncodeUtf8(static_cast<unsigned char>(c));
  Require(converted == expected && logged.empty(), "U8ToMb() encodes each byte");
}

// Each byte becomes one unit. Empty input is logged.
template <typename Units>
void BytesToUnits(const std::string& s, Units (*convert)(const std::string&), bool isSigned) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
  const Units units = convert(s);
  RequireEqual(Logged(*records), s.empty() ? "Parameter is empty!;" : "", "empty input is logged");
  RequireEqual(units.size(), s.size(), "one unit per byte");
  for (size_t i = 0; i < s.size(); ++i) {
    const int value =
        reference::ByteAt(s, i) - (isSigned && reference::ByteAt(s, i) > 0x7F ? 0x100 : 0);
    RequireEqual(units[i], static_cast<typename Units::value_type>(value),
                 "the unit has the byte's value");
  }
}

template <typename Units>
void UnitsToBytes(FuzzedDataProvider& input, std::string (*convert)(const Units&), bool throws) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
  Units units;
  std::string expected;
  bool wide = false;
  for (auto left = input.ConsumeIntegralInRange<size_t>(0, 20); left > 0; --left) {
    const auto value =
        input.ConsumeBool() ? input.ConsumeIntegral<uint32_t>() : input.ConsumeIntegral<uint8_t>();
    const auto unit = static_cast<typename Units::value_type>(portable ? value & 0xFFFF : value);
    units += unit;
    expected += static_cast<char>(static_cast<uint32_t>(unit) % 256);
    wide = wide || static_cast<uint32_t>(unit) > 0xFF;
  }
  try {
    RequireEqual(convert(units), expected, "the result is the low byte of each unit");
    Require(!throws || !wide, "a wide unit is rejected");
  } catch (const std::range_error& error) {
    Require(throws && wide && std::string(error.what()) == "bad conversion", "the exception");
  }
  RequireEqual(Logged(*records), units.empty() ? "Parameter is empty!;" : "",
               "empty input is logged");
}

void Environment(const std::string& value) {
  const std::string text = WellFormedForWine(value.substr(0, value.find('\0')));
  tarsio_test::SetVariable("TARSIO_FUZZ", text);
  const std::wstring units = reference::Widen(text);
  const std::string utf8 = reference::Narrow(units);
  const bool fits = units.size() < 256 && utf8.size() <= 254;
  RequireEqual(CharsetCvt::GetEnv(L"TARSIO_FUZZ", "unused"), fits ? utf8 : "", "GetEnv()");
  const std::wstring beginning = L"TARSIO_FUZZ=" + units.substr(0, units.find(L'='));
  Require(CharsetCvt::GetEnv(beginning, "unused").empty(), "a name with '=' is not found");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  tarsio_test::SetVariable("LC_ALL", "C.UTF-8");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  UnitsToBytes<std::wstring>(input, &CharsetCvt::WToU8, true);
  UnitsToBytes<std::u16string>(input, &CharsetCvt::U16ToU8, false);
  UnitsToBytes<std::u32string>(input, &CharsetCvt::U32ToU8, false);

  const std::string s = input.ConsumeRemainingBytesAsString();
  RequireEqual(CharsetCvt::IsU8(s), reference::IsU8(s), "IsU8()");
  bool ascii = true;
  for (const char c : s) ascii = ascii && c >= 0;
  RequireEqual(CharsetCvt::IsASCII(s), ascii, "IsASCII()");
  RequireEqual(CharsetCvt::StartsWithBom(s), reference::IsU8(s) && s.rfind("\xEF\xBB\xBF", 0) == 0,
               "StartsWithBom()");
  BytesToUnits<std::wstring>(s, &CharsetCvt::U8ToW, false);
  BytesToUnits<std::u16string>(s, &CharsetCvt::U8ToU16, true);
  BytesToUnits<std::u32string>(s, &CharsetCvt::U8ToU32, true);
  FromUserEncoding(s);
  ToUserEncoding(s);
  Environment(s);
  return 0;
}

}  // namespace tarsio_fuzz
