#include "common/charset_cvt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <fstream>
#include <functional>
#include <ios>
#include <iterator>
#include <limits>
#include <locale>
#include <memory>
#include <ostream>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "common/log.h"
#include "support/environment.h"
#include "support/memory.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::CharsetCvt;
using tarsio_test::LogRecord;
using tarsio_test::LogRecords;
using tarsio_test::ScopedDirectory;
using tarsio_test::ScopedVariable;

using WideFacet = std::codecvt<wchar_t, char, std::mbstate_t>;

// ---- reference implementations ----

// A byte-wise state machine: the number of continuation bytes left, and whether the previous byte
// was ED.
bool IsU8ByTheRule(const std::string& text) {
  int due = 0;
  bool behindEd = false;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (due > 0) {
      if (byte < 0x80 || byte > (behindEd ? 0x9F : 0xBF)) return false;
      behindEd = false;
      --due;
    } else if (byte >= 0x80) {
      if (byte < 0xC0 || byte > 0xF7) return false;
      due = byte < 0xE0 ? 1 : byte < 0xF0 ? 2 : 3;
      behindEd = byte == 0xED;
    }
  }
  return due == 0 && !text.empty();
}

bool IsAsciiByTheRule(const std::string& text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

bool StartsWithBomByTheRule(const std::string& text) {
  return text.rfind("\xEF\xBB\xBF", 0) == 0 && IsU8ByTheRule(text);
}

bool ChecksAgreeWithTheRules(const std::string& text) {
  return CharsetCvt::IsU8(text) == IsU8ByTheRule(text) &&
         CharsetCvt::IsASCII(text) == IsAsciiByTheRule(text) &&
         CharsetCvt::StartsWithBom(text) == StartsWithBomByTheRule(text);
}

std::string EveryByte() {
  std::string bytes;
  for (int byte = 0; byte <= 0xFF; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

// ---- reports ----

void ExpectReport(const LogRecord& record, const std::string& function, const std::string& text) {
  EXPECT_EQ(record.level, tarsio::LOG_LEVEL_INFO);
  EXPECT_EQ(static_cast<int>(record.level), 3);
  EXPECT_EQ(record.file, "src/charset_cvt.cpp");
  EXPECT_GT(record.line, 0);
  EXPECT_EQ(record.function, function);
  const std::string end = "charset_cvt.cpp:" + std::to_string(record.line) + "] " + text;
  ASSERT_GE(record.text.size(), end.size());
  EXPECT_EQ(record.text.substr(record.text.size() - end.size()), end);
}

void ExpectOneReport(const LogRecords& records, const std::string& function,
                     const std::string& text) {
  const std::vector<LogRecord> all = records.All();
  ASSERT_EQ(all.size(), 1U);
  ExpectReport(all[0], function, text);
}

// Returns what() of the exception that `call` throws, or "". Other standard exceptions fail the
// test.
template <typename Exception>
std::string TextThrownBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const Exception& exception) {
    EXPECT_EQ(typeid(exception), typeid(Exception));
    return exception.what();
  }
  return {};
}

// ---- checks ----

struct CheckRow {
  const char* name;
  std::string text;
  bool expected;
};

TEST(CharsetCvt, IsU8) {
  const CheckRow rows[] = {
      {"empty", "", false},
      {"ASCII", "abc", true},
      {"zero byte", std::string(1, '\0'), true},
      {"zero bytes inside", std::string("a\0\xC3\xA9\0z", 6), true},
      {"zero byte instead of a continuation", std::string("\xC3\0", 2), false},
      {"7F", "\x7F", true},
      {"two bytes", "\xC3\xA9", true},
      {"truncated two bytes", "\xC3", false},
      {"three bytes", "\xE4\xB8\xAD", true},
      {"truncated three bytes, one left", "\xE4", false},
      {"truncated three bytes, two left", "\xE4\xB8", false},
      {"four bytes", "\xF0\x9F\x98\x80", true},
      {"truncated four bytes, one left", "\xF0", false},
      {"truncated four bytes, two left", "\xF0\x9F", false},
      {"truncated four bytes, three left", "\xF0\x9F\x98", false},
      {"lone continuation", "\x80", false},
      {"lone last continuation", "\xBF", false},
      {"continuation after a character", "\xC3\xA9\xA9", false},
      {"lead instead of a continuation", "\xC3\xC3\xA9", false},
      {"ASCII in place of the last continuation", "\xF0\x9F\x98z", false},
      {"first surrogate", "\xED\xA0\x80", false},
      {"last surrogate", "\xED\xBF\xBF", false},
      {"surrogate within", "a\xED\xA0\x80z", false},
      {"surrogate pair", "\xED\xA0\xBD\xED\xB8\x80", false},
      {"below the surrogates", "\xED\x9F\xBF", true},
      {"ED alone", "\xED", false},
      {"ED A0 alone", "\xED\xA0", false},
      {"ED 9F alone", "\xED\x9F", false},
      {"above the surrogates", "\xEE\x80\x80", true},
      {"five-byte form", "\xF8\x88\x80\x80\x80", false},
      {"FE", "\xFE", false},
      {"FF", "\xFF", false},
      {"invalid last byte", std::string(1000, 'a') + '\x80', false},
  };
  for (const CheckRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(CharsetCvt::IsU8(row.text), row.expected);
  }
}

// Of all sequences that encode no character, only surrogates are refused (by design).
TEST(CharsetCvt, IsU8Overlong) {
  const CheckRow rows[] = {
      {"C0 80, overlong zero", "\xC0\x80", true},
      {"C1 BF", "\xC1\xBF", true},
      {"E0 80 80, overlong zero", "\xE0\x80\x80", true},
      {"E0 9F BF", "\xE0\x9F\xBF", true},
      {"F0 80 80 80, overlong zero", "\xF0\x80\x80\x80", true},
      {"F0 8D A0 80, overlong surrogate", "\xF0\x8D\xA0\x80", true},
      {"F0 8F BF BF", "\xF0\x8F\xBF\xBF", true},
      {"F4 8F BF BF, the last character", "\xF4\x8F\xBF\xBF", true},
      {"F4 90 80 80, the first value beyond", "\xF4\x90\x80\x80", true},
      {"F5 80 80 80", "\xF5\x80\x80\x80", true},
      {"F7 BF BF BF, the last", "\xF7\xBF\xBF\xBF", true},
      {"noncharacters", "\xEF\xBF\xBE\xEF\xBF\xBF", true},
  };
  for (const CheckRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(CharsetCvt::IsU8(row.text), row.expected);
  }
}

TEST(CharsetCvt, IsASCII) {
  EXPECT_TRUE(CharsetCvt::IsASCII(""));
  EXPECT_TRUE(CharsetCvt::IsASCII(EveryByte().substr(0, 0x80)));
  for (int byte = 0x80; byte <= 0xFF; ++byte) {
    SCOPED_TRACE(byte);
    const auto c = static_cast<char>(byte);
    EXPECT_FALSE(CharsetCvt::IsASCII(std::string(1, c)));
    EXPECT_FALSE(CharsetCvt::IsASCII(std::string("a\0", 2) + c));
    EXPECT_FALSE(CharsetCvt::IsASCII(c + std::string("z")));
  }
}

TEST(CharsetCvt, HighByte) {
  const std::string ascii = EveryByte().substr(0, 0x80);
  const std::string text = ascii + ascii + ascii + ascii + ascii;
  for (const size_t place : {0U, 1U, 127U, 254U, 255U, 256U, 511U, 512U, 513U, 638U, 639U}) {
    for (int byte = 0x80; byte <= 0xFF; ++byte) {
      std::string other = text;
      other[place] = static_cast<char>(byte);
      EXPECT_FALSE(CharsetCvt::IsASCII(other)) << byte << " at " << place;
      EXPECT_FALSE(CharsetCvt::IsU8(other)) << byte << " at " << place;
    }
  }
  EXPECT_TRUE(CharsetCvt::IsASCII(text));
  EXPECT_TRUE(CharsetCvt::IsU8(text));
}

TEST(CharsetCvt, StartsWithBom) {
  const CheckRow rows[] = {
      {"empty", "", false},
      {"mark alone", "\xEF\xBB\xBF", true},
      {"mark and ASCII",
       "\xEF\xBB\xBF"
       "A",
       true},
      {"mark and zero byte", std::string("\xEF\xBB\xBF\0", 4), true},
      {"two marks", "\xEF\xBB\xBF\xEF\xBB\xBF", true},
      {"mark and invalid byte", "\xEF\xBB\xBF\xFF", false},
      {"mark and distant invalid byte", "\xEF\xBB\xBF" + std::string(1000, 'a') + '\x80', false},
      {"mark and a surrogate", "\xEF\xBB\xBF\xED\xA0\x80", false},
      {"one byte of the mark", "\xEF", false},
      {"two bytes of the mark", "\xEF\xBB", false},
      {"another last byte", "\xEF\xBB\xBE", false},
      {"another middle byte", "\xEF\xBA\xBF", false},
      {"no mark", "abc", false},
      {"mark at the end", "a\xEF\xBB\xBF", false},
      {"mark of UTF-16", "\xFF\xFE", false},
  };
  for (const CheckRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(CharsetCvt::StartsWithBom(row.text), row.expected);
  }
}

TEST(CharsetCvt, ThreeBytes) {
  ASSERT_TRUE(ChecksAgreeWithTheRules(""));
  std::string one(1, '\0');
  std::string two(2, '\0');
  std::string three(3, '\0');
  for (int first = 0; first <= 0xFF; ++first) {
    one[0] = two[0] = three[0] = static_cast<char>(first);
    ASSERT_TRUE(ChecksAgreeWithTheRules(one)) << testing::PrintToString(one);
    for (int second = 0; second <= 0xFF; ++second) {
      two[1] = three[1] = static_cast<char>(second);
      ASSERT_TRUE(ChecksAgreeWithTheRules(two)) << testing::PrintToString(two);
      for (int third = 0; third <= 0xFF; ++third) {
        three[2] = static_cast<char>(third);
        if (!ChecksAgreeWithTheRules(three)) FAIL() << testing::PrintToString(three);
      }
    }
  }
}

TEST(CharsetCvt, FourBytes) {
  // Both sides of every range limit, and a few bytes between.
  const std::string alphabet(
      "\0A\x7F\x80\x8F\x90\x9F\xA0\xA9\xBB\xBF\xC0\xDF\xE0\xED\xEF\xF0\xF7"
      "\xF8\xFF",
      20);
  std::string text(4, '\0');
  for (int lead = 0; lead <= 0xFF; ++lead) {
    text[0] = static_cast<char>(lead);
    for (const char second : alphabet) {
      for (const char third : alphabet) {
        for (const char fourth : alphabet) {
          text[1] = second;
          text[2] = third;
          text[3] = fourth;
          if (!ChecksAgreeWithTheRules(text)) FAIL() << testing::PrintToString(text);
        }
      }
    }
  }
}

TEST(CharsetCvt, LongInput) {
  const std::string kValid[] = {"a",
                                std::string(1, '\0'),
                                "\x7F",
                                "\xC3\xA9",
                                "\xC0\x80",
                                "\xE4\xB8\xAD",
                                "\xE0\x80\x80",
                                "\xED\x9F\xBF",
                                "\xEF\xBB\xBF",
                                "\xF0\x9F\x98\x80",
                                "\xF7\xBF\xBF\xBF"};
  const std::string kInvalid[] = {"\x80",
                                  "\xC3",
                                  "\xE4\xB8",
                                  "\xED\xA0\x80",
                                  "\xED\xBF",
                                  "\xF0\x9F\x98",
                                  "\xF8\x88\x80\x80\x80",
                                  "\xFF"};
  std::mt19937_64 random(20240305);
  const auto below = [&random](size_t limit) { return static_cast<size_t>(random() % limit); };
  int valid = 0;
  int invalid = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string text = below(4) == 0 ? "\xEF\xBB\xBF" : "";
    for (size_t pieces = below(400); pieces > 0; --pieces) text += kValid[below(std::size(kValid))];
    if (below(2) == 0) {
      const size_t at = below(text.size() + 1);
      text.insert(at, kInvalid[below(std::size(kInvalid))]);
    }
    if (below(4) == 0 && !text.empty()) text[below(text.size())] = static_cast<char>(random());
    ASSERT_TRUE(ChecksAgreeWithTheRules(text)) << testing::PrintToString(text);
    (IsU8ByTheRule(text) ? valid : invalid)++;
  }
  EXPECT_GT(valid, 500);
  EXPECT_GT(invalid, 500);
}

// Indices of 32 bits would overflow.
TEST(CharsetCvt, HugeInput) {
  constexpr uint64_t kLargest = TARSIO_TEST_LARGEST_TEXT;
  const auto size = static_cast<size_t>(std::min(kLargest, tarsio_test::FreeMemory() / 3));
  ASSERT_GT(size, 0x100000U) << "not enough memory";
  std::string text(size, 'a');
  text[size - 1] = '\xC3';
  EXPECT_FALSE(CharsetCvt::IsASCII(text));
  EXPECT_FALSE(CharsetCvt::IsU8(text));
  text[size - 2] = '\xC3';
  text[size - 1] = '\xA9';
  EXPECT_TRUE(CharsetCvt::IsU8(text));
}

// ---- wide units ----

TEST(CharsetCvt, U8ToW) {
  EXPECT_EQ(CharsetCvt::U8ToW("\xC3\xA9"), std::wstring(L"\x00C3\x00A9"));
  EXPECT_EQ(CharsetCvt::U8ToW(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
  const std::string bytes = EveryByte();
  const std::wstring units = CharsetCvt::U8ToW(bytes);
  ASSERT_EQ(units.size(), 256U);
  for (size_t value = 0; value < 256; ++value) {
    EXPECT_EQ(static_cast<size_t>(units[value]), value);
    EXPECT_EQ(CharsetCvt::U8ToW(bytes.substr(value, 1)), std::wstring(1, units[value]));
  }
}

TEST(CharsetCvt, WToU8) {
  EXPECT_EQ(CharsetCvt::WToU8(L"\x00E9"), "\xE9");
  EXPECT_EQ(CharsetCvt::WToU8(std::wstring(L"a\0b", 3)), std::string("a\0b", 3));
  std::wstring units;
  for (int value = 0; value <= 0xFF; ++value) {
    units += static_cast<wchar_t>(value);
    EXPECT_EQ(CharsetCvt::WToU8(units.substr(units.size() - 1)),
              std::string(1, static_cast<char>(value)));
  }
  EXPECT_EQ(CharsetCvt::WToU8(units), EveryByte());
}

TEST(CharsetCvt, WToU8AboveFF) {
  std::vector<wchar_t> units = {std::numeric_limits<wchar_t>::max(), static_cast<wchar_t>(-1)};
  for (int value = 0x100; value <= 0xFFFF; ++value) units.push_back(static_cast<wchar_t>(value));
  for (const wchar_t unit : units) {
    const std::string thrown =
        TextThrownBy<std::range_error>([unit] { CharsetCvt::WToU8(std::wstring(1, unit)); });
    ASSERT_EQ(thrown, "bad conversion") << static_cast<long long>(unit);
  }
}

TEST(CharsetCvt, WToU8Anywhere) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const std::wstring& text : {std::wstring(L"\x4E2D"), std::wstring(L"ab\x0100"),
                                   std::wstring(L"\x4E2D"
                                                "ab"),
                                   std::wstring(L"a\0\x4E2D", 3)}) {
    EXPECT_EQ(TextThrownBy<std::range_error>([&text] { CharsetCvt::WToU8(text); }),
              "bad conversion");
  }
  EXPECT_TRUE(records->All().empty());
}

TEST(CharsetCvt, WToU8FarBack) {
  for (const size_t size : {255U, 256U, 257U, 511U, 512U, 513U, 1000U}) {
    const std::wstring units(size, L'\x00FF');
    EXPECT_EQ(CharsetCvt::WToU8(units), std::string(size, '\xFF'));
    for (size_t place = 0; place < size; ++place) {
      std::wstring text = units;
      text[place] = L'\x0100';
      ASSERT_EQ(TextThrownBy<std::range_error>([&text] { CharsetCvt::WToU8(text); }),
                "bad conversion")
          << place << " of " << size;
    }
  }
}

// ---- 16-bit and 32-bit units ----

TEST(CharsetCvt, U8ToU16Sign) {
  EXPECT_EQ(CharsetCvt::U8ToU16("\xC3\xA9"), (std::u16string{0xFFC3, 0xFFA9}));
  const std::string bytes = EveryByte();
  const std::u16string units = CharsetCvt::U8ToU16(bytes);
  ASSERT_EQ(units.size(), 256U);
  for (size_t value = 0; value < 256; ++value) {
    const auto expected = static_cast<char16_t>(value < 0x80 ? value : 0xFF00 + value);
    EXPECT_EQ(units[value], expected) << value;
    EXPECT_EQ(CharsetCvt::U8ToU16(bytes.substr(value, 1)), std::u16string(1, expected)) << value;
  }
}

TEST(CharsetCvt, U8ToU32Sign) {
  EXPECT_EQ(CharsetCvt::U8ToU32("\xC3\xA9"), (std::u32string{0xFFFFFFC3, 0xFFFFFFA9}));
  const std::string bytes = EveryByte();
  const std::u32string units = CharsetCvt::U8ToU32(bytes);
  ASSERT_EQ(units.size(), 256U);
  for (size_t value = 0; value < 256; ++value) {
    const auto expected = static_cast<char32_t>(value < 0x80 ? value : 0xFFFFFF00 + value);
    EXPECT_EQ(units[value], expected) << value;
    EXPECT_EQ(CharsetCvt::U8ToU32(bytes.substr(value, 1)), std::u32string(1, expected)) << value;
  }
}

TEST(CharsetCvt, U16ToU8) {
  EXPECT_EQ(CharsetCvt::U16ToU8(std::u16string{0x00E9}), "\xE9");
  std::u16string units;
  std::string expected;
  for (uint32_t value = 0; value <= 0xFFFF; ++value) {
    units += static_cast<char16_t>(value);
    expected += static_cast<char>(static_cast<unsigned char>(value % 256));
    ASSERT_EQ(CharsetCvt::U16ToU8(units.substr(value)), expected.substr(value)) << value;
  }
  EXPECT_EQ(CharsetCvt::U16ToU8(units), expected);
}

TEST(CharsetCvt, U32ToU8) {
  EXPECT_EQ(CharsetCvt::U32ToU8(std::u32string{0x1F600}), std::string(1, '\0'));
  EXPECT_EQ(CharsetCvt::U32ToU8(std::u32string{0xFFFFFFFF, 0x80000041, 0x110000}),
            std::string("\xFF\x41\0", 3));
  std::mt19937_64 random(1);
  std::u32string units;
  std::string expected;
  for (uint32_t value = 0; value <= 0x1FFFF; ++value) {
    const auto unit = static_cast<uint32_t>(value <= 0xFFFF ? value : random());
    units += static_cast<char32_t>(unit);
    expected += static_cast<char>(static_cast<unsigned char>(unit % 256));
    ASSERT_EQ(CharsetCvt::U32ToU8(units.substr(value)), expected.substr(value)) << unit;
  }
  EXPECT_EQ(CharsetCvt::U32ToU8(units), expected);
}

TEST(CharsetCvt, RoundTrips) {
  const std::string bytes = EveryByte() + EveryByte();
  EXPECT_EQ(CharsetCvt::WToU8(CharsetCvt::U8ToW(bytes)), bytes);
  EXPECT_EQ(CharsetCvt::U16ToU8(CharsetCvt::U8ToU16(bytes)), bytes);
  EXPECT_EQ(CharsetCvt::U32ToU8(CharsetCvt::U8ToU32(bytes)), bytes);
}

// ---- misuse ----

struct EmptyRow {
  const char* function;
  bool (*isEmptyFor)();
};

const EmptyRow kEmptyRows[] = {
    {"tarsio::CharsetCvt::WToU8", [] { return CharsetCvt::WToU8(L"").empty(); }},
    {"tarsio::CharsetCvt::U8ToW", [] { return CharsetCvt::U8ToW("").empty(); }},
    {"tarsio::CharsetCvt::U16ToU8", [] { return CharsetCvt::U16ToU8(u"").empty(); }},
    {"tarsio::CharsetCvt::U8ToU16", [] { return CharsetCvt::U8ToU16("").empty(); }},
    {"tarsio::CharsetCvt::U32ToU8", [] { return CharsetCvt::U32ToU8(U"").empty(); }},
    {"tarsio::CharsetCvt::U8ToU32", [] { return CharsetCvt::U8ToU32("").empty(); }},
};

TEST(CharsetCvt, EmptyInput) {
  for (const EmptyRow& row : kEmptyRows) {
    SCOPED_TRACE(row.function);
    const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
    EXPECT_TRUE(row.isEmptyFor());
    ExpectOneReport(*records, row.function, "Parameter is empty!");
  }
}

TEST(CharsetCvt, ReportLines) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
  for (const EmptyRow& row : kEmptyRows) row.isEmptyFor();
  CharsetCvt::U8ToMb("");
  std::set<int> lines;
  for (const LogRecord& record : records->All()) {
    EXPECT_GT(record.line, 0);
    lines.insert(record.line);
  }
  EXPECT_EQ(lines.size(), std::size(kEmptyRows) + 1);
}

TEST(CharsetCvt, ReportLevel) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  for (const EmptyRow& row : kEmptyRows) EXPECT_TRUE(row.isEmptyFor());
  EXPECT_EQ(CharsetCvt::U8ToMb("\xFF"), "");
  EXPECT_TRUE(records->All().empty());
}

TEST(CharsetCvt, NoOtherReports) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const std::string zero(1, '\0');
  CharsetCvt::WToU8(std::wstring(1, L'\0'));
  CharsetCvt::U8ToW(zero);
  CharsetCvt::U16ToU8(std::u16string(1, u'\0'));
  CharsetCvt::U8ToU16(zero);
  CharsetCvt::U32ToU8(std::u32string(1, U'\0'));
  CharsetCvt::U8ToU32(zero);
  CharsetCvt::IsASCII("");
  CharsetCvt::IsU8("");
  CharsetCvt::StartsWithBom("");
  EXPECT_TRUE(records->All().empty());
}

// ---- the global locale, with any user locale ----

class Marker : public std::locale::facet {
 public:
  static std::locale::id id;
};
std::locale::id Marker::id;

// Sets a recognizable global locale, and a user locale that exists.
class CvtLocale : public testing::Test {
 protected:
  CvtLocale() : marked(std::locale::classic(), new Marker) { MarkGlobalLocale(); }
  ~CvtLocale() override { std::locale::global(std::locale::classic()); }

  void MarkGlobalLocale() {
    std::locale::global(std::locale::classic());  // also sets the C runtime's locale
    std::locale::global(marked);
  }
  static bool GlobalLocaleIsMarked() { return std::has_facet<Marker>(std::locale()); }

 private:
  const ScopedVariable user{"LC_ALL", "C"};
  const std::locale marked;
};

TEST_F(CvtLocale, MbToU8Valid) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const std::string& text :
       {std::string("abc"), std::string("\xC3\xA9"), std::string("\xEF\xBB\xBF\xE4\xB8\xAD"),
        std::string("\0\xF0\x9F\x98\x80\0", 6), std::string("\xC0\x80\xF7\xBF\xBF\xBF")}) {
    EXPECT_EQ(CharsetCvt::MbToU8(text), text);
  }
  EXPECT_TRUE(GlobalLocaleIsMarked());
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  EXPECT_TRUE(records->All().empty());
}

TEST_F(CvtLocale, MbToU8Empty) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  EXPECT_EQ(CharsetCvt::MbToU8(""), "");
  EXPECT_FALSE(GlobalLocaleIsMarked());
  EXPECT_TRUE(records->All().empty());
}

TEST_F(CvtLocale, U8ToMbInvalid) {
  for (const char* text : {"", "\x80", "\xC3", "abc\xFF", "\xED\xA0\x80"}) {
    SCOPED_TRACE(testing::PrintToString(text));
    const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
    EXPECT_EQ(CharsetCvt::U8ToMb(text), "");
    ExpectOneReport(*records, "tarsio::CharsetCvt::U8ToMb",
                    "Parameter is Not a valid UTF-8 string!");
  }
  EXPECT_TRUE(GlobalLocaleIsMarked());
}

TEST_F(CvtLocale, U8ToMbAscii) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  EXPECT_EQ(CharsetCvt::U8ToMb("abc ~"), "abc ~");
  EXPECT_FALSE(GlobalLocaleIsMarked());
  MarkGlobalLocale();
  EXPECT_EQ(CharsetCvt::U8ToMb(std::string("a\0b\0", 4)), std::string("a\0b\0", 4));
  EXPECT_FALSE(GlobalLocaleIsMarked());
  EXPECT_TRUE(records->All().empty());
}

TEST_F(CvtLocale, OtherFunctions) {
  const std::string bytes = EveryByte();
  CharsetCvt::IsASCII(bytes);
  CharsetCvt::IsU8("\xC3\xA9");
  CharsetCvt::StartsWithBom("\xEF\xBB\xBF");
  CharsetCvt::WToU8(CharsetCvt::U8ToW(bytes));
  CharsetCvt::U16ToU8(CharsetCvt::U8ToU16(bytes));
  CharsetCvt::U32ToU8(CharsetCvt::U8ToU32(bytes));
  CharsetCvt::GetEnv(L"TARSIO_TEST_VARIABLE", "");
  EXPECT_TRUE(GlobalLocaleIsMarked());
  CharsetCvt::MbToU8("");  // sets the global locale to the user's
  EXPECT_EQ(CharsetCvt::WToU8(CharsetCvt::U8ToW(bytes)), bytes);
  EXPECT_EQ(CharsetCvt::U8ToW("\xE9"), L"\x00E9");
}

TEST_F(CvtLocale, ManyThreads) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
  const std::string bytes = EveryByte();
  const ScopedVariable variable("TARSIO_TEST_VARIABLE", "value");
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&bytes] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_FALSE(CharsetCvt::IsU8(bytes));
        EXPECT_FALSE(CharsetCvt::IsASCII(bytes));
        EXPECT_EQ(CharsetCvt::MbToU8("\xC3\xA9"), "\xC3\xA9");
        EXPECT_EQ(CharsetCvt::WToU8(CharsetCvt::U8ToW(bytes)), bytes);
        EXPECT_EQ(CharsetCvt::U16ToU8(CharsetCvt::U8ToU16(bytes)), bytes);
        EXPECT_EQ(CharsetCvt::U32ToU8(CharsetCvt::U8ToU32(bytes)), bytes);
        EXPECT_EQ(CharsetCvt::GetEnv(L"TARSIO_TEST_VARIABLE", ""), "value");
        EXPECT_EQ(CharsetCvt::U8ToMb(""), "");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(records->All().size(), 800U);
  EXPECT_TRUE(GlobalLocaleIsMarked());
}

// ---- conversions in the encoding of the environment ----

// One conversion. `reported` is the code of "Convert error", 0 if none is logged. If it `throws`,
// the result is not checked.
struct ConversionRow {
  const char* name;
  std::string text;
  std::string result;
  int reported;
  bool throws;
};

struct Encoding {
  const char* name;
  std::string sample;  // characters that the classic locale's facet cannot convert
  std::wstring decoded;
  std::vector<ConversionRow> toU8;
  std::vector<ConversionRow> toMb;
};

// For test names.
void PrintTo(const Encoding& encoding, std::ostream* stream) { *stream << encoding.name; }

constexpr bool kThrows = true;

std::string Bytes(const char* text, size_t size) { return std::string(text, size); }

std::vector<Encoding> AllEncodings() {
  const std::string every = EveryByte();
  std::string everyTwo;  // all UTF-8 sequences of two bytes, including overlong ones
  for (int lead = 0xC0; lead <= 0xDF; ++lead) {
    for (int next = 0x80; next <= 0xBF; ++next) {
      everyTwo += {static_cast<char>(lead), static_cast<char>(next)};
    }
  }
  return {
      {"latin1",
       "\xE9",
       L"\x00E9",
       {{"one character", "\xE9", "\xE9", 0, false},
        {"characters within ASCII", "caf\xE9s", "caf\xE9s", 0, false},
        {"every byte", every, every, 0, false},
        {"zero bytes", Bytes("\0\xE9\0", 3), Bytes("\0\xE9\0", 3), 0, false}},
       {{"ASCII", "abc", "abc", 0, false},
        {"one character per byte", "\xC3\xA9", "\xC3\xA9", 0, false},
        {"all two-byte sequences", everyTwo, everyTwo, 0, false},
        {"longer forms", "\xE4\xB8\xAD\xF0\x9F\x98\x80", "\xE4\xB8\xAD\xF0\x9F\x98\x80", 0, false},
        {"zero bytes", Bytes("\0\xC3\xA9\0", 4), Bytes("\0\xC3\xA9\0", 4), 0, false}}},

      {"eucjp",
       "\xB0\xA1",
       L"\x4E9C",
       {{"single byte", "A\x80", "A\x80", 0, false},
        {"double byte below 100", "\xA1\xF8", "\xA7", 0, false},
        {"three bytes below 100", "x\x8F\xA2\xED", "x\xA9", 0, false},
        {"double byte above FF", "\xB0\xA1", "", 0, kThrows},
        {"double byte above FF inside", "A\xB0\xA1Z", "", 0, kThrows},
        {"half-width character", "\x8E\xB1", "", 0, kThrows},
        {"truncated double byte", "A\xB0", Bytes("A\0", 2), 1, false},
        {"truncated double byte alone", "\xB0", Bytes("\0", 1), 1, false},
        {"truncated three bytes", "AB\x8F\xA2", Bytes("AB\0\0", 4), 1, false},
        {"truncated after a double byte", "\xA1\xF8\xB0", Bytes("\xA7\0\0", 3), 1, false},
        {"truncated after a zero byte", Bytes("A\0\xB0", 3), Bytes("A\0\0", 3), 1, false},
        {"zero byte inside a double byte", Bytes("A\xB0\0\xA1", 4), Bytes("A\0\0\0", 4), 2, false},
        {"truncated after a character above FF", "\xB0\xA1\xB0", "", 1, kThrows},
        {"invalid byte", "\xFF", Bytes("\0", 1), 2, false},
        {"invalid byte inside", "AB\xFFYZ", Bytes("AB\0\0\0", 5), 2, false},
        {"invalid second byte", "A\xB0z", Bytes("A\0\0", 3), 2, false},
        {"unassigned double byte", "A\xFE\xFE", Bytes("A\0\0", 3), 2, false},
        {"invalid after a character above FF", "\xB0\xA1\xFF", "", 2, kThrows}},
       {{"ASCII", "abc", "abc", 0, false},
        {"one character per byte", "\xC3\xA9", "\x8F\xAA\xAA\x8F\xA2\xED", 0, false},
        {"within ASCII", "a\xC2\xA7z", "a\x8F\xAA\xA4\xA1\xF8z", 0, false},
        {"zero bytes", Bytes("\0\xC2\xA7\0", 4), Bytes("\0\x8F\xAA\xA4\xA1\xF8\0", 7), 0, false},
        {"not encodable", "\xD0\x90", Bytes("\0\0\0\0\0\0", 6), 2, false},
        {"not encodable after others", "a\xC2\xABz", Bytes("a\x8F\xAA\xA4\0\0\0\0\0\0\0\0", 12), 2,
         false}}},

      {"utf8",
       "\xE3\x81\x82\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       L"\x3042\U00010000\U0010FFFF",
       {{"truncated two bytes", "A\xC3", Bytes("A\0", 2), 1, false},
        {"truncated three bytes", "A\xE3\x81", Bytes("A\0\0", 3), 1, false},
        {"truncated four bytes", "\xF0\x9F\x98", Bytes("\0\0\0", 3), 1, false},
        {"truncated first character of three bytes", "\xE0\xA0", Bytes("\0\0", 2), 1, false},
        {"truncated last character of three bytes", "\xEF\xBF", Bytes("\0\0", 2), 1, false},
        {"truncated last character", "\xF4\x8F\xBF", Bytes("\0\0\0", 3), 1, false},
        {"truncated after the last of two bytes", "\xDF\xBF\xC2", "", 1, kThrows},
        {"truncated after a character", "\xC3\xA9\xC3", Bytes("\xE9\0\0", 3), 1, false},
        {"truncated after a zero byte", Bytes("A\0\xC3", 3), Bytes("A\0\0", 3), 1, false},
        {"zero byte inside a character", Bytes("\xC3\0\xA9", 3), Bytes("\0\0\0", 3), 2, false},
        {"zero byte instead of the second", Bytes("A\xC3\0", 3), Bytes("A\0\0", 3), 2, false},
        {"truncated after a character above FF", "\xE3\x81\x82\xE3", "", 1, kThrows},
        {"invalid byte", "\xFF", Bytes("\0", 1), 2, false},
        {"overlong lead byte", "\xC1", Bytes("\0", 1), 2, false},
        {"invalid byte after a character", "\xC3\xA9\xFFz", Bytes("\xE9\0\0\0", 4), 2, false},
        {"lone continuation", "A\x80", Bytes("A\0", 2), 2, false},
        {"letter inside two bytes", "\xC3\x41", Bytes("\0\0", 2), 2, false},
        {"letter inside three bytes", "\xE9\x41", Bytes("\0\0", 2), 2, false},
        {"lead byte after a lead byte", "\xC3\xC3", Bytes("\0\0", 2), 2, false},
        {"lead byte inside three bytes", "\xE3\x81\xE3", Bytes("\0\0\0", 3), 2, false},
        {"surrogate", "A\xED\xA0\x80", Bytes("A\0\0\0", 4), 2, false},
        {"invalid after a character above FF", "\xE3\x81\x82\xFF", "", 2, kThrows}},
       {{"ASCII", "abc", "abc", 0, false},
        {"each byte encoded again", "\xC3\xA9", "\xC3\x83\xC2\xA9", 0, false},
        {"longer forms", "\xE4\xB8\xAD", "\xC3\xA4\xC2\xB8\xC2\xAD", 0, false},
        {"zero bytes", Bytes("\0\xC3\xA9\0", 4), Bytes("\0\xC3\x83\xC2\xA9\0", 6), 0, false}}},

      {"cp1252",
       "\x80",
       L"\x20AC",
       {{"one character", "\xE9", "\xE9", 0, false},
        {"characters within ASCII", "caf\xE9s", "caf\xE9s", 0, false},
        {"all bytes from A0", every.substr(0xA0), every.substr(0xA0), 0, false},
        {"bytes without a character", "\x81\x8D\x8F\x90\x9D", "\x81\x8D\x8F\x90\x9D", 0, false},
        {"zero bytes", Bytes("\0\xE9\0", 3), Bytes("\0\xE9\0", 3), 0, false},
        {"character above FF", "A\x80", "", 0, kThrows}},
       {{"ASCII", "abc", "abc", 0, false},
        {"one character per byte", "\xC3\xA9", "\xC3\xA9", 0, false},
        {"longer forms", "\xE4\xB8\xAD", "\xE4\xB8\xAD", 0, false},
        {"zero bytes", Bytes("\0\xC3\xA9\0", 4), Bytes("\0\xC3\xA9\0", 4), 0, false},
        {"not encodable", "a\xC3\x80z", Bytes("a\xC3\0\0", 4), 2, false}}},

      {"cp932",
       "\x88\x9F",
       L"\x4E9C",
       {{"single byte", "A\x80", "A\x80", 0, false},
        {"double byte below 100", "\x81\x98", "\xA7", 0, false},
        {"double byte above FF", "\x88\x9F", "", 0, kThrows},
        {"double byte above FF inside", "A\x88\x9FZ", "", 0, kThrows},
        {"half-width character", "\xB1", "", 0, kThrows},
        {"truncated double byte", "A\x88", Bytes("A\0", 2), 1, false},
        {"truncated double byte alone", "\x88", Bytes("\0", 1), 1, false},
        {"truncated after a double byte", "\x81\x98\x88", Bytes("\xA7\0\0", 3), 1, false},
        {"truncated after a zero byte", Bytes("A\0\x88", 3), Bytes("A\0\0", 3), 1, false},
        {"truncated after a character above FF", "\x88\x9F\x88", "", 1, kThrows},
        {"invalid second byte", "A\x81 Z", Bytes("A\0\0\0", 4), 2, false},
        {"zero byte instead of the second", Bytes("A\x88\0Z", 4), Bytes("A\0\0\0", 4), 2, false},
        {"unassigned double byte", "AB\x85\x40YZ", Bytes("AB\0\0\0\0", 6), 2, false},
        {"invalid after a character above FF", "\x88\x9F\x81 ", "", 2, kThrows}},
       {{"ASCII", "abc", "abc", 0, false},
        {"one character per byte", "a\xD7\xA7z", "a\x81\x7E\x81\x98z", 0, false},
        {"nearest characters", "\xC3\xA9", "Ac", 0, false},
        {"zero bytes", Bytes("\0\xD7\xA7\0", 4), Bytes("\0\x81\x7E\x81\x98\0", 6), 0, false},
        {"not encodable", "\xD7\x81z", Bytes("\x81\x7E\0\0\0\0", 6), 2, false}}},

      {"cp1251",
       "\xE9",
       L"\x0439",
       {{"one character", "\xA7", "\xA7", 0, false},
        {"characters within ASCII", "\xA7 1\xA9", "\xA7 1\xA9", 0, false},
        {"zero bytes", Bytes("\0\xA7\0", 3), Bytes("\0\xA7\0", 3), 0, false},
        {"character above FF", "A\xE9", "", 0, kThrows}},
       {{"ASCII", "abc", "abc", 0, false},
        {"nearest character", "\xC2\xA7", "A\xA7", 0, false},
        {"not encodable", "\xD0\x90", Bytes("\0\0", 2), 2, false},
        {"not encodable after others", "a\xC3\xBCz", Bytes("aA\0\0", 4), 2, false}}},
  };
}

// The user's locale is set before the program starts. TARSIO_TEST_ENCODING selects the expected
// results; without it these cases do not exist.
constexpr char kNoSuchLocale[] = "none";

std::string NamedEncoding() {
  const char* const name = std::getenv("TARSIO_TEST_ENCODING");
  return name == nullptr ? "" : name;
}

std::vector<Encoding> EncodingsHere() {
  const std::string wanted = NamedEncoding();
  if (wanted.empty() || wanted == kNoSuchLocale) return {};
  for (const Encoding& encoding : AllEncodings()) {
    if (encoding.name == wanted) return {encoding};
  }
  throw std::invalid_argument("TARSIO_TEST_ENCODING=" + wanted);
}

class CvtEncoding : public testing::TestWithParam<Encoding> {
 protected:
  CvtEncoding() { std::locale::global(std::locale::classic()); }
  ~CvtEncoding() override { std::locale::global(std::locale::classic()); }
};

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(CvtEncoding);
INSTANTIATE_TEST_SUITE_P(Environment, CvtEncoding, testing::ValuesIn(EncodingsHere()),
                         [](const auto& row) { return std::string(row.param.name); });

void ExpectConversions(const std::vector<ConversionRow>& rows,
                       std::string (*convert)(const std::string&), const std::string& function) {
  for (const ConversionRow& row : rows) {
    SCOPED_TRACE(row.name);
    const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
    if (row.throws) {
      EXPECT_EQ(TextThrownBy<std::range_error>([&] { convert(row.text); }), "bad conversion");
    } else {
      EXPECT_EQ(convert(row.text), row.result);
    }
    if (row.reported == 0) {
      EXPECT_TRUE(records->All().empty());
    } else {
      ExpectOneReport(*records, function, "Convert error: " + std::to_string(row.reported));
    }
  }
}

TEST_P(CvtEncoding, MbToU8) {
  ExpectConversions(GetParam().toU8, &CharsetCvt::MbToU8, "tarsio::CharsetCvt::MbToU8");
}

TEST_P(CvtEncoding, U8ToMb) {
  ExpectConversions(GetParam().toMb, &CharsetCvt::U8ToMb, "tarsio::CharsetCvt::U8ToMb");
}

TEST_P(CvtEncoding, MbToU8Valid) {
  for (const char* text : {"abc", "\xC3\xA9", "\xE4\xB8\xAD\xF0\x9F\x98\x80", "\xC0\x80"}) {
    EXPECT_EQ(CharsetCvt::MbToU8(text), text);
  }
  EXPECT_EQ(std::locale(), std::locale::classic());
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
}

// Expects the user's locale in C++ and in the C runtime. An environment variable holds the suffix
// of the runtime's locale name.
void ExpectUserLocaleIsGlobal(const Encoding& encoding) {
  EXPECT_NE(std::locale(), std::locale::classic());
  const std::string runtimeName = std::setlocale(LC_ALL, nullptr);
  const char* const end = std::getenv("TARSIO_TEST_RUNTIME_LOCALE");
  ASSERT_NE(end, nullptr);
  EXPECT_THAT(runtimeName, testing::EndsWith(end));

  const std::locale global;
  const auto& facet = std::use_facet<WideFacet>(global);
  std::mbstate_t state{};
  const char* const begin = encoding.sample.data();
  const char* const endOfSample = begin + encoding.sample.size();
  const char* next = begin;
  wchar_t units[8] = {};
  wchar_t* nextUnit = units;
  EXPECT_EQ(facet.in(state, begin, endOfSample, next, units, units + 8, nextUnit), WideFacet::ok);
  EXPECT_EQ(std::wstring(units, nextUnit), encoding.decoded);
}

TEST_P(CvtEncoding, SetsLocale) {
  const std::pair<const char*, std::function<void()>> conversions[] = {
      {"MbToU8, empty", [] { CharsetCvt::MbToU8(""); }},
      {"MbToU8, whatever becomes of it", [] { CharsetCvt::MbToU8("A\x80"); }},
      {"U8ToMb", [] { CharsetCvt::U8ToMb("abc"); }},
  };
  for (const auto& [name, convert] : conversions) {
    SCOPED_TRACE(name);
    std::locale::global(std::locale::classic());
    try {
      convert();
    } catch (const std::range_error&) {
      // 80 is a character above FF in some encodings.
    }
    ExpectUserLocaleIsGlobal(GetParam());
  }
  CharsetCvt::MbToU8("abc");
  CharsetCvt::U8ToMb("");
  CharsetCvt::WToU8(L"abc");
  ExpectUserLocaleIsGlobal(GetParam());
}

TEST_P(CvtEncoding, FacetRoom) {
  const std::string sample = GetParam().sample + GetParam().sample;
  const std::wstring decoded = GetParam().decoded + GetParam().decoded;
  CharsetCvt::U8ToMb("abc");
  const std::locale global;
  const auto& facet = std::use_facet<WideFacet>(global);
  for (size_t room = 1; room < decoded.size(); ++room) {
    SCOPED_TRACE(room);
    std::wstring units(decoded.size() + 1, L'?');
    wchar_t* nextUnit = &units[0];
    const char* next = sample.data();
    std::mbstate_t state{};
    EXPECT_EQ(
        facet.in(state, next, next + sample.size(), next, nextUnit, nextUnit + room, nextUnit),
        WideFacet::partial);
    const auto count = static_cast<size_t>(nextUnit - units.data());
    EXPECT_LE(count, room);
    EXPECT_EQ(units.substr(0, count), decoded.substr(0, count));
    EXPECT_EQ(units.substr(count), std::wstring(units.size() - count, L'?'));
  }
  for (size_t room = 1; room < sample.size(); ++room) {
    SCOPED_TRACE(room);
    std::string bytes(sample.size() + 1, '?');
    char* nextByte = &bytes[0];
    const wchar_t* next = decoded.data();
    std::mbstate_t state{};
    EXPECT_EQ(
        facet.out(state, next, next + decoded.size(), next, nextByte, nextByte + room, nextByte),
        WideFacet::partial);
    const auto count = static_cast<size_t>(nextByte - bytes.data());
    EXPECT_LE(count, room);
    EXPECT_EQ(bytes.substr(0, count), sample.substr(0, count));
    EXPECT_EQ(bytes.substr(count), std::string(bytes.size() - count, '?'));
  }
}

TEST_P(CvtEncoding, LowSurrogate) {
  CharsetCvt::U8ToMb("abc");
  const std::locale global;
  const auto& facet = std::use_facet<WideFacet>(global);
  for (const wchar_t unit : {L'\xDC00', L'\xDFFF'}) {
    SCOPED_TRACE(static_cast<unsigned>(unit));
    char bytes[8];
    char* nextByte = nullptr;
    const wchar_t* next = nullptr;
    std::mbstate_t state{};
    EXPECT_EQ(facet.out(state, &unit, &unit + 1, next, bytes, bytes + sizeof bytes, nextByte),
              WideFacet::error);
    EXPECT_EQ(next, &unit);
    EXPECT_EQ(nextByte, bytes);
  }
}

TEST_P(CvtEncoding, FacetUnshift) {
  CharsetCvt::U8ToMb("abc");
  const std::locale global;
  const auto& facet = std::use_facet<WideFacet>(global);
  char bytes[8];
  char* nextByte = nullptr;
  std::mbstate_t state{};
  EXPECT_EQ(facet.unshift(state, bytes, bytes + sizeof bytes, nextByte), WideFacet::noconv);
  EXPECT_EQ(nextByte, bytes);
}

// The file is longer than a stream's buffer and has characters that span two buffers.
TEST_P(CvtEncoding, FileStreams) {
  constexpr size_t kSamples = 10000;
  const ScopedDirectory directory;
  const std::string& sample = GetParam().sample;
  const std::wstring& decoded = GetParam().decoded;
  std::string bytes = "x";
  std::wstring text = L"x";
  for (size_t i = 0; i < kSamples; ++i) {
    bytes += sample;
    text += decoded;
  }
  CharsetCvt::U8ToMb("abc");  // new streams use the global locale
  std::wofstream output(directory.Native("file"), std::ios::binary);
  output << text;
  output.close();
  EXPECT_TRUE(output.good());
  EXPECT_EQ(directory.Read("file"), bytes);

  std::wifstream input(directory.Native("file"), std::ios::binary);
  std::wstring begin(1 + kSamples / 10 * decoded.size(), L'\0');
  input.read(&begin[0], static_cast<std::streamsize>(begin.size()));
  EXPECT_EQ(begin, text.substr(0, begin.size()));
  const auto position = input.tellg();
  EXPECT_EQ(position, static_cast<std::streamoff>(1 + kSamples / 10 * sample.size()));
  for (int round = 0; round < 2; ++round) {
    const std::wstring rest{std::istreambuf_iterator<wchar_t>(input), {}};
    EXPECT_EQ(rest, text.substr(begin.size()));
    input.clear();
    input.seekg(position);
  }
  // Seeking by characters works only if all of them have the same length.
  EXPECT_EQ(input.seekg(3, std::ios::beg).good(), sample.size() == 1);
}

// A stream may detect an error only when it is closed, and may then throw.
bool StreamWrites(const std::filesystem::path& file, const wchar_t* text) {
  std::wofstream output(file, std::ios::binary);
  try {
    output << text;
    output.close();
  } catch (const std::ios_base::failure&) {
    return false;
  }
  return output.good();
}

TEST_P(CvtEncoding, HalfPair) {
  const ScopedDirectory directory;
  CharsetCvt::U8ToMb("abc");
  EXPECT_TRUE(StreamWrites(directory.Native("file"), L"abc"));
  for (const wchar_t* text : {L"a\xD83D", L"a\xD83D-", L"a\xD83D\xD83D", L"a\xDE00"}) {
    EXPECT_FALSE(StreamWrites(directory.Native("file"), text)) << testing::PrintToString(text);
  }
}

TEST_P(CvtEncoding, LineNumbers) {
  CharsetCvt::U8ToMb("abc");
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  tarsio::Log::GetInstance().DoLog(tarsio::LOG_LEVEL_INFO, "x.cpp", 1234567, "f", "%d", 7654321);
  const std::string text = records->All().at(0).text;
  const std::string end = "][INFO][x.cpp:1234567] 7654321";
  ASSERT_GT(text.size(), end.size());
  EXPECT_EQ(text.substr(text.size() - end.size()), end);
}

TEST_P(CvtEncoding, ClassicCtype) {
  CharsetCvt::U8ToMb("abc");
  const std::string bytes = EveryByte();
  EXPECT_EQ(CharsetCvt::WToU8(CharsetCvt::U8ToW(bytes)), bytes);
  EXPECT_EQ(CharsetCvt::U8ToW("\xC3\xA9"), L"\x00C3\x00A9");
  EXPECT_EQ(TextThrownBy<std::range_error>([] { CharsetCvt::WToU8(L"\x20AC"); }), "bad conversion");
}

// ---- a user locale that does not exist ----

std::vector<std::string> MissingLocalesHere() {
  if (NamedEncoding() != kNoSuchLocale) return {};
  return {kNoSuchLocale};
}

class CvtNoLocale : public testing::TestWithParam<std::string> {};

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(CvtNoLocale);
INSTANTIATE_TEST_SUITE_P(Environment, CvtNoLocale, testing::ValuesIn(MissingLocalesHere()),
                         [](const auto& row) { return row.param; });

TEST_P(CvtNoLocale, Throws) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const std::function<void()> conversions[] = {
      [] { CharsetCvt::MbToU8(""); },
      [] { CharsetCvt::MbToU8("\xE9"); },
      [] { CharsetCvt::U8ToMb("abc"); },
      [] { CharsetCvt::U8ToMb("\xC3\xA9"); },
  };
  for (const std::function<void()>& convert : conversions) {
    EXPECT_EQ(TextThrownBy<std::runtime_error>(convert), "bad locale name");
    EXPECT_EQ(std::locale(), std::locale::classic());
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  }
  EXPECT_TRUE(records->All().empty());
}

// Neither a locale nor a failure is cached.
TEST_P(CvtNoLocale, AsksEachTime) {
  const auto expectNone = [] {
    EXPECT_EQ(TextThrownBy<std::runtime_error>([] { CharsetCvt::MbToU8("\xA1\xF8"); }),
              "bad locale name");
    EXPECT_EQ(TextThrownBy<std::runtime_error>([] { CharsetCvt::U8ToMb("\xC2\xA7"); }),
              "bad locale name");
  };
  expectNone();
  for (int round = 0; round < 2; ++round) {
    {
      const ScopedVariable user("LC_ALL", "ja_JP.EUC-JP");
      EXPECT_EQ(CharsetCvt::MbToU8("\xA1\xF8"), "\xA7");
      EXPECT_EQ(CharsetCvt::U8ToMb("\xC2\xA7"), "\x8F\xAA\xA4\xA1\xF8");
      EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "ja_JP.EUC-JP");
    }
    expectNone();
    const ScopedVariable user("LC_ALL", "en_US.ISO-8859-1");
    EXPECT_EQ(CharsetCvt::MbToU8("\xA1\xF8"), "\xA1\xF8");
    EXPECT_EQ(CharsetCvt::U8ToMb("\xC2\xA7"), "\xC2\xA7");
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), "en_US.ISO-8859-1");
  }
  std::locale::global(std::locale::classic());
}

TEST_P(CvtNoLocale, OthersWork) {
  EXPECT_EQ(CharsetCvt::MbToU8("\xC3\xA9"), "\xC3\xA9");
  EXPECT_EQ(CharsetCvt::U8ToMb(""), "");
  EXPECT_EQ(CharsetCvt::U8ToW("\xE9"), L"\x00E9");
}

// ---- environment variables ----

constexpr char kVariable[] = "TARSIO_TEST_VARIABLE";
constexpr wchar_t kWideVariable[] = L"TARSIO_TEST_VARIABLE";

std::string Repeat(const std::string& text, size_t count) {
  std::string repeated;
  for (; count > 0; --count) repeated += text;
  return repeated;
}

// The default is accepted and never used (by design).
TEST(GetEnv, Unset) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const ScopedVariable variable(kVariable, std::nullopt);
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, ""), "");
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), "");
  EXPECT_EQ(CharsetCvt::GetEnv(L"", "default"), "");
  EXPECT_TRUE(records->All().empty());
}

TEST(GetEnv, EmptyValue) {
  const ScopedVariable variable(kVariable, "");
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), "");
}

TEST(GetEnv, ValuesAreUtf8) {
  const std::pair<const char*, std::string> rows[] = {
      {"ASCII", "C:\\Program Files; x=y %PATH% "},
      {"two bytes", "caf\xC3\xA9"},
      {"three bytes", "\xE4\xB8\xAD\xE6\x96\x87"},
      {"surrogate pairs", "a\xF0\x9F\x98\x80\xF4\x8F\xBF\xBFz"},
      {"byte order mark", "\xEF\xBB\xBF"},
  };
  for (const auto& [name, value] : rows) {
    SCOPED_TRACE(name);
    const ScopedVariable variable(kVariable, value);
    EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), value);
  }
}

TEST(GetEnv, LongValuesAreEmpty) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const std::string two = "\xC3\xA9";           // one unit
  const std::string three = "\xE4\xB8\xAD";     // one unit
  const std::string four = "\xF0\x9F\x98\x80";  // two units
  const struct {
    const char* name;
    std::string value;
    bool fits;
  } rows[] = {
      {"253 ASCII", std::string(253, 'a'), true},
      {"254 ASCII", std::string(254, 'a'), true},
      {"255 ASCII: 255 units, 255 bytes", std::string(255, 'a'), false},
      {"256 ASCII", std::string(256, 'a'), false},
      {"257 ASCII", std::string(257, 'a'), false},
      {"1000 ASCII", std::string(1000, 'a'), false},
      {"254 bytes in two", Repeat(two, 127), true},
      {"255 bytes in two", "a" + Repeat(two, 127), false},
      {"256 bytes in two", Repeat(two, 128), false},
      {"255 units of two bytes", Repeat(two, 255), false},
      {"254 bytes in three", "aa" + Repeat(three, 84), true},
      {"255 bytes in three", Repeat(three, 85), false},
      {"254 bytes in four", "aa" + Repeat(four, 63), true},
      {"255 bytes in four", Repeat(four, 63) + "aaa", false},
      {"256 bytes in four", Repeat(four, 64), false},
      {"a pair across the 256th unit", std::string(255, 'a') + four, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const ScopedVariable variable(kVariable, row.value);
    EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), row.fits ? row.value : "");
  }
  EXPECT_TRUE(records->All().empty());
}

TEST(GetEnv, InvalidCharacters) {
  const ScopedVariable variable(kVariable, std::nullopt);
  tarsio_test::SetVariableWithBrokenCharacter(kVariable);
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, ""),
            "a\xEF\xBF\xBD"
            "b");
}

TEST(GetEnv, NonAsciiNames) {
  const ScopedVariable variable("TARSIO_\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80", "value");
  // A surrogate pair, for any size of wchar_t.
  EXPECT_EQ(CharsetCvt::GetEnv(
                std::wstring(L"TARSIO_\x00E9\x4E2D") + wchar_t{0xD83D} + wchar_t{0xDE00}, ""),
            "value");
}

TEST(GetEnv, NameEndsAtNul) {
  const ScopedVariable variable(kVariable, "value");
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable + std::wstring(1, L'\0') + L"X", ""), "value");
}

TEST(GetEnv, NameWithEquals) {
  const ScopedVariable variable(kVariable, "B=value");
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable + std::wstring(L"=B"), ""), "");
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable + std::wstring(L"="), ""), "");
}

TEST(GetEnv, IsNotCached) {
  const ScopedVariable variable(kVariable, "one");
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, ""), "one");
  tarsio_test::SetVariable(kVariable, "two");
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, ""), "two");
  tarsio_test::UnsetVariable(kVariable);
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, ""), "");
}

// ---- DeletableFacet ----

static_assert(!std::is_destructible<WideFacet>::value, "the destructor is protected");
static_assert(std::is_destructible<tarsio::deletable_facet<WideFacet>>::value, "");
static_assert(std::is_default_constructible<tarsio::deletable_facet<WideFacet>>::value, "");
static_assert(std::is_base_of<WideFacet, tarsio::deletable_facet<WideFacet>>::value, "");

TEST(DeletableFacet, Convert) {
  using Facet = tarsio::deletable_facet<std::codecvt<char16_t, char, std::mbstate_t>>;
  std::wstring_convert<Facet, char16_t> converter;
  EXPECT_EQ(converter.from_bytes("a\xC3\xA9\xF0\x9F\x98\x80"), u"a\u00E9\U0001F600");
  EXPECT_EQ(converter.to_bytes(u"a\u00E9\U0001F600"), "a\xC3\xA9\xF0\x9F\x98\x80");

  std::wstring_convert<tarsio::deletable_facet<WideFacet>> wide;
  EXPECT_EQ(wide.from_bytes("abc"), L"abc");
  EXPECT_EQ(wide.to_bytes(L"abc"), "abc");
}

class CountedFacet : public WideFacet {
 public:
  explicit CountedFacet(int* counter) : destroyed(counter) {}

 protected:
  ~CountedFacet() override { ++*destroyed; }

 private:
  int* const destroyed;
};

TEST(DeletableFacet, Owner) {
  int destroyed = 0;
  {
    const std::wstring_convert<tarsio::deletable_facet<CountedFacet>> converter(
        new tarsio::deletable_facet<CountedFacet>(&destroyed));
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
  std::make_unique<tarsio::deletable_facet<CountedFacet>>(&destroyed).reset();
  EXPECT_EQ(destroyed, 2);
}

TEST(DeletableFacet, Arguments) {
  using Named = std::codecvt_byname<wchar_t, char, std::mbstate_t>;
  const tarsio::deletable_facet<Named> facet("C");
  EXPECT_GE(facet.max_length(), 1);
  EXPECT_EQ(TextThrownBy<std::runtime_error>([] {
              const tarsio::deletable_facet<Named> none("no_SUCH.locale");
            }).empty(),
            false);
}

}  // namespace
