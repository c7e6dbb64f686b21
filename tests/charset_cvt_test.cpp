#include "common/charset_cvt.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cwchar>
#include <fstream>
#include <functional>
#include <ios>
#include <iterator>
#include <limits>
#include <locale>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "common/log.h"
#include "reference/utf.h"
#include "support/all_texts.h"
#include "support/environment.h"
#include "support/memory.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::CharsetCvt;
using tarsio_test::ForEachText;
using tarsio_test::LogRecord;
using tarsio_test::LogRecords;
using tarsio_test::ScopedDirectory;
using tarsio_test::ScopedVariable;
using testing::EndsWith;

using WideFacet = std::codecvt<wchar_t, char, std::mbstate_t>;

// ---- reference implementations ----

bool IsAsciiByTheRule(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

bool StartsWithBomByTheRule(const std::string& text) {
  return text.rfind("\xEF\xBB\xBF", 0) == 0 && reference::IsU8(text);
}

void ExpectRules(const std::string& text) {
  if (CharsetCvt::IsU8(text) == reference::IsU8(text) &&
      CharsetCvt::IsASCII(text) == IsAsciiByTheRule(text) &&
      CharsetCvt::StartsWithBom(text) == StartsWithBomByTheRule(text)) {
    return;
  }
  ADD_FAILURE() << testing::PrintToString(text);
}

std::string EveryByte() {
  std::string bytes;
  for (int byte = 0; byte <= 0xFF; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

// A string literal with its NULs.
template <size_t N>
std::string Bytes(const char (&literal)[N]) {
  return std::string(literal, N - 1);
}

// ---- reports ----

void ExpectOneReport(const LogRecords& records, const std::string& function,
                     const std::string& text) {
  ASSERT_EQ(records.All().size(), 1U);
  const LogRecord record = records.All()[0];
  EXPECT_EQ(record.level, tarsio::LOG_LEVEL_INFO);
  EXPECT_EQ(record.file, "src/charset_cvt.cpp");
  EXPECT_GT(record.line, 0);
  EXPECT_EQ(record.function, function);
  EXPECT_THAT(record.text,
              EndsWith("charset_cvt.cpp:" + std::to_string(record.line) + "] " + text));
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

// CharsetCvt.ThreeBytes and CharsetCvt.FourBytes check all rules; these are examples.
TEST(CharsetCvt, IsU8) {
  EXPECT_TRUE(CharsetCvt::IsU8(Bytes("a\0\xC3\xA9\0\xE4\xB8\xAD\xF0\x9F\x98\x80")));
  for (const char* const text : {"", "\xE4\xB8", "\xBF", "\xF0\x9F\x98z", "\xF8\x88\x80\x80\x80"}) {
    EXPECT_FALSE(CharsetCvt::IsU8(text)) << testing::PrintToString(text);
  }
}

// Of all sequences that encode no character, only surrogates are refused (by design).
TEST(CharsetCvt, IsU8Overlong) {
  for (const char* const text :
       {"\xC0\x80", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\xF0\x8D\xA0\x80", "\xF4\x90\x80\x80",
        "\xF7\xBF\xBF\xBF", "\xEF\xBF\xBE\xEF\xBF\xBF"}) {
    EXPECT_TRUE(CharsetCvt::IsU8(text)) << testing::PrintToString(text);
  }
}

TEST(CharsetCvt, StartsWithBom) {
  EXPECT_TRUE(CharsetCvt::StartsWithBom("\xEF\xBB\xBFz"));
  EXPECT_FALSE(CharsetCvt::StartsWithBom("\xEF\xBB\xBF" + std::string(1000, 'a') + '\x80'));
  for (const char* const text : {"\xEF\xBB\xBF\xED\xA0\x80", "a\xEF\xBB\xBF", "\xFF\xFE"}) {
    EXPECT_FALSE(CharsetCvt::StartsWithBom(text)) << testing::PrintToString(text);
  }
}

TEST(CharsetCvt, ThreeBytes) { ForEachText(EveryByte(), 3, ExpectRules); }

// Both sides of every range limit, and a few bytes between.
TEST(CharsetCvt, FourBytes) {
  const std::string bytes = Bytes(
      "\0A\x7F\x80\x8F\x90\x9F\xA0\xA9\xBB\xBF\xC0\xDF\xE0\xEC\xED\xEE\xEF\xF0\xF1\xF4\xF5\xF7\xF8"
      "\xFF");
  ForEachText(bytes, 4, ExpectRules);
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

// Each byte becomes one unit, alone and within a string.
template <typename Text>
void ExpectUnits(Text (*convert)(const std::string&), uint32_t addedFrom80) {
  const std::string bytes = EveryByte();
  const Text units = convert(bytes);
  ASSERT_EQ(units.size(), 256U);
  for (uint32_t value = 0; value < 256; ++value) {
    const auto expected =
        static_cast<typename Text::value_type>(value + (value < 0x80 ? 0 : addedFrom80));
    EXPECT_EQ(units[value], expected) << value;
    EXPECT_EQ(convert(bytes.substr(value, 1)), Text(1, expected)) << value;
  }
}

TEST(CharsetCvt, U8ToW) {
  ExpectUnits<std::wstring>(&CharsetCvt::U8ToW, 0);
  EXPECT_EQ(CharsetCvt::WToU8(CharsetCvt::U8ToW(EveryByte())), EveryByte());
}

// Bytes are signed.
TEST(CharsetCvt, U8ToU16Sign) {
  EXPECT_EQ(CharsetCvt::U8ToU16("\xC3\xA9"), (std::u16string{0xFFC3, 0xFFA9}));
  EXPECT_EQ(CharsetCvt::U8ToU32("\xC3\xA9"), (std::u32string{0xFFFFFFC3, 0xFFFFFFA9}));
  ExpectUnits<std::u16string>(&CharsetCvt::U8ToU16, 0xFF00);
  ExpectUnits<std::u32string>(&CharsetCvt::U8ToU32, 0xFFFFFF00);
}

void ExpectBadConversion(const std::wstring& text) {
  EXPECT_EQ(TextThrownBy<std::range_error>([&text] { CharsetCvt::WToU8(text); }), "bad conversion");
}

TEST(CharsetCvt, WToU8AboveFF) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (int value = 0x100; value <= 0xFFFF; ++value) {
    ExpectBadConversion(std::wstring(1, static_cast<wchar_t>(value)));
  }
  ExpectBadConversion(std::wstring(1, std::numeric_limits<wchar_t>::max()));
  ExpectBadConversion(std::wstring(1, static_cast<wchar_t>(-1)));
  for (const size_t size : {255U, 256U, 257U, 511U, 512U, 513U, 1000U}) {
    std::wstring text(size, L'\x00FF');
    EXPECT_EQ(CharsetCvt::WToU8(text), std::string(size, '\xFF'));
    for (wchar_t& unit : text) {
      unit = L'\x0100';
      ExpectBadConversion(text);
      unit = L'\0';
    }
  }
  EXPECT_TRUE(records->All().empty());
}

TEST(CharsetCvt, LowBytes) {
  std::u16string units;
  std::u32string wideUnits = {0xFFFFFFFF, 0x80000041, 0x110000};
  std::string expected;
  for (uint32_t value = 0; value <= 0xFFFF; ++value) {
    units += static_cast<char16_t>(value);
    wideUnits += static_cast<char32_t>(value * 0x10001);
    expected += static_cast<char>(static_cast<unsigned char>(value % 256));
  }
  EXPECT_EQ(CharsetCvt::U16ToU8(units), expected);
  EXPECT_EQ(CharsetCvt::U32ToU8(wideUnits), Bytes("\xFF\x41\0") + expected);
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
  std::set<int> lines;
  for (const EmptyRow& row : kEmptyRows) {
    SCOPED_TRACE(row.function);
    const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
    EXPECT_TRUE(row.isEmptyFor());
    ExpectOneReport(*records, row.function, "Parameter is empty!");
    lines.insert(records->All().at(0).line);
  }
  EXPECT_EQ(lines.size(), std::size(kEmptyRows)) << "each report has its own line";
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  for (const EmptyRow& row : kEmptyRows) EXPECT_TRUE(row.isEmptyFor());
  tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_DEBUG);
  EXPECT_FALSE(CharsetCvt::IsU8("") || CharsetCvt::StartsWithBom(""));
  EXPECT_TRUE(CharsetCvt::IsASCII(""));
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
       {std::string("\xEF\xBB\xBF\xE4\xB8\xAD"), Bytes("\0\xF0\x9F\x98\x80\0"),
        Bytes("\xC0\x80\xF7\xBF\xBF\xBF")}) {
    EXPECT_EQ(CharsetCvt::MbToU8(text), text);
  }
  EXPECT_TRUE(GlobalLocaleIsMarked());
  EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  EXPECT_TRUE(records->All().empty());
}

TEST_F(CvtLocale, Ascii) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  EXPECT_EQ(CharsetCvt::MbToU8(""), "");
  EXPECT_FALSE(GlobalLocaleIsMarked());
  MarkGlobalLocale();
  EXPECT_EQ(CharsetCvt::U8ToMb(Bytes("abc ~\0b\0")), Bytes("abc ~\0b\0"));
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

TEST_F(CvtLocale, OtherFunctions) {
  const std::string bytes = EveryByte();
  const auto callOthers = [&bytes] {
    EXPECT_FALSE(CharsetCvt::IsU8(bytes) || CharsetCvt::IsASCII(bytes));
    EXPECT_FALSE(CharsetCvt::StartsWithBom(bytes));
    EXPECT_EQ(CharsetCvt::WToU8(CharsetCvt::U8ToW(bytes)), bytes);
    EXPECT_EQ(CharsetCvt::U16ToU8(CharsetCvt::U8ToU16(bytes)), bytes);
    EXPECT_EQ(CharsetCvt::U32ToU8(CharsetCvt::U8ToU32(bytes)), bytes);
    EXPECT_EQ(CharsetCvt::MbToU8("\xC3\xA9"), "\xC3\xA9");
    EXPECT_EQ(CharsetCvt::U8ToMb(""), "");
    EXPECT_EQ(CharsetCvt::GetEnv(L"TARSIO_TEST_VARIABLE", ""), "value");
  };
  const ScopedVariable variable("TARSIO_TEST_VARIABLE", "value");
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_INFO);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&callOthers] {
      for (int round = 0; round < 200; ++round) callOthers();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(records->All().size(), 800U);
  EXPECT_TRUE(GlobalLocaleIsMarked());
  CharsetCvt::MbToU8("");  // sets the global locale to the user's
  callOthers();
}

// ---- conversions in the encoding of the environment ----

// One conversion. `reported` is the code of "Convert error", 0 if none is logged.
struct ConversionRow {
  const char* name;
  std::string text;
  std::string result;
  int reported = 0;
};

// A character above FF was decoded.
const std::string kThrows = "throws";

struct Encoding {
  const char* name;
  std::string sample;  // characters that the classic locale's facet cannot convert
  std::wstring decoded;
  std::vector<ConversionRow> toU8;
  std::vector<ConversionRow> toMb;
};

// For test names.
void PrintTo(const Encoding& encoding, std::ostream* stream) { *stream << encoding.name; }

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
       {{"every byte", every, every}},
       {{"all two-byte sequences", everyTwo, everyTwo},
        {"longer forms", Bytes("\xE4\xB8\xAD\0\xF0\x9F\x98\x80"),
         Bytes("\xE4\xB8\xAD\0\xF0\x9F\x98\x80")}}},

      {"eucjp",
       "\xB0\xA1",
       L"\x4E9C",
       {{"single byte", "A\x80", "A\x80"},
        {"double byte below 100", "\xA1\xF8", "\xA7"},
        {"three bytes below 100", "x\x8F\xA2\xED", "x\xA9"},
        {"above FF", "A\xB0\xA1Z", kThrows},
        {"half-width character", "\x8E\xB1", kThrows},
        {"truncated double byte", "A\xB0", Bytes("A\0"), 1},
        {"truncated three bytes", "AB\x8F\xA2", Bytes("AB\0\0"), 1},
        {"truncated after a double byte", "\xA1\xF8\xB0", Bytes("\xA7\0\0"), 1},
        {"truncated after a zero byte", Bytes("A\0\xB0"), Bytes("A\0\0"), 1},
        {"zero byte inside a double byte", Bytes("A\xB0\0\xA1"), Bytes("A\0\0\0"), 2},
        {"truncated after one above FF", "\xB0\xA1\xB0", kThrows, 1},
        {"invalid byte", "AB\xFFYZ", Bytes("AB\0\0\0"), 2},
        {"invalid second byte", "A\xB0z", Bytes("A\0\0"), 2},
        {"unassigned double byte", "A\xFE\xFE", Bytes("A\0\0"), 2},
        {"invalid after one above FF", "\xB0\xA1\xFF", kThrows, 2}},
       {{"one character per byte", "\xC3\xA9", "\x8F\xAA\xAA\x8F\xA2\xED"},
        {"zero bytes", Bytes("\0\xC2\xA7\0z"), Bytes("\0\x8F\xAA\xA4\xA1\xF8\0z")},
        {"not encodable", "\xD0\x90", Bytes("\0\0\0\0\0\0"), 2},
        {"not encodable after others", "a\xC2\xABz", "a\x8F\xAA\xA4" + std::string(8, '\0'), 2}}},

      {"utf8",
       "\xE3\x81\x82\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
       L"\x3042\U00010000\U0010FFFF",
       {{"truncated two bytes", "A\xC3", Bytes("A\0"), 1},
        {"truncated first of three bytes", "\xE0\xA0", Bytes("\0\0"), 1},
        {"truncated last of three bytes", "\xEF\xBF", Bytes("\0\0"), 1},
        {"truncated four bytes", "\xF0\x9F\x98", Bytes("\0\0\0"), 1},
        {"truncated last character", "\xF4\x8F\xBF", Bytes("\0\0\0"), 1},
        {"truncated after a character", "\xC3\xA9\xC3", Bytes("\xE9\0\0"), 1},
        {"truncated after a zero byte", Bytes("A\0\xC3"), Bytes("A\0\0"), 1},
        {"zero byte inside a character", Bytes("\xC3\0\xA9"), Bytes("\0\0\0"), 2},
        {"zero byte instead of the second", Bytes("A\xC3\0"), Bytes("A\0\0"), 2},
        {"truncated after the last of two bytes", "\xDF\xBF\xC2", kThrows, 1},
        {"overlong lead byte", "\xC1", Bytes("\0"), 2},
        {"invalid byte after a character", "\xC3\xA9\xFFz", Bytes("\xE9\0\0\0"), 2},
        {"lone continuation", "A\x80", Bytes("A\0"), 2},
        {"letter inside two bytes", "\xC3\x41", Bytes("\0\0"), 2},
        {"letter inside three bytes", "\xE9\x41", Bytes("\0\0"), 2},
        {"lead byte inside three bytes", "\xE3\x81\xE3", Bytes("\0\0\0"), 2},
        {"surrogate", "A\xED\xA0\x80", Bytes("A\0\0\0"), 2},
        {"invalid after one above FF", "\xE3\x81\x82\xFF", kThrows, 2}},
       {{"each byte encoded again", Bytes("\xC3\xA9\0"), Bytes("\xC3\x83\xC2\xA9\0")},
        {"longer forms", "\xE4\xB8\xAD", "\xC3\xA4\xC2\xB8\xC2\xAD"}}},

      {"cp1252",
       "\x80",
       L"\x20AC",
       {{"all bytes from A0", every.substr(0xA0), every.substr(0xA0)},
        {"bytes without a character", "\x81\x8D\x8F\x90\x9D", "\x81\x8D\x8F\x90\x9D"},
        {"zero bytes", Bytes("\0\xE9\0"), Bytes("\0\xE9\0")},
        {"above FF", "A\x80", kThrows}},
       {{"longer forms", Bytes("\xE4\xB8\xAD\0\xC3\xA9"), Bytes("\xE4\xB8\xAD\0\xC3\xA9")},
        {"not encodable", "a\xC3\x80z", Bytes("a\xC3\0\0"), 2}}},

      {"cp932",
       "\x88\x9F",
       L"\x4E9C",
       {{"single byte", "A\x80", "A\x80"},
        {"double byte below 100", "\x81\x98", "\xA7"},
        {"above FF", "A\x88\x9FZ", kThrows},
        {"half-width character", "\xB1", kThrows},
        {"truncated double byte", "A\x88", Bytes("A\0"), 1},
        {"truncated after a double byte", "\x81\x98\x88", Bytes("\xA7\0\0"), 1},
        {"truncated after a zero byte", Bytes("A\0\x88"), Bytes("A\0\0"), 1},
        {"truncated after one above FF", "\x88\x9F\x88", kThrows, 1},
        {"invalid second byte", "A\x81 Z", Bytes("A\0\0\0"), 2},
        {"zero byte instead of the second", Bytes("A\x88\0Z"), Bytes("A\0\0\0"), 2},
        {"unassigned double byte", "AB\x85\x40YZ", Bytes("AB\0\0\0\0"), 2},
        {"invalid after one above FF", "\x88\x9F\x81 ", kThrows, 2}},
       {{"zero bytes", Bytes("\0\xD7\xA7\0z"), Bytes("\0\x81\x7E\x81\x98\0z")},
        {"nearest characters", "\xC3\xA9", "Ac"},
        {"not encodable", "\xD7\x81z", Bytes("\x81\x7E\0\0\0\0"), 2}}},

      {"cp1251",
       "\xE9",
       L"\x0439",
       {{"within ASCII", Bytes("\xA7 1\0\xA9"), Bytes("\xA7 1\0\xA9")},
        {"above FF", "A\xE9", kThrows}},
       {{"nearest character", "\xC2\xA7", "A\xA7"},
        {"not encodable", "\xD0\x90", Bytes("\0\0"), 2},
        {"not encodable after others", "a\xC3\xBCz", Bytes("aA\0\0"), 2}}},
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
    if (row.result == kThrows) {
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

// Valid until the next call.
const WideFacet& GlobalFacet() {
  static std::locale global;
  global = std::locale();
  return std::use_facet<WideFacet>(global);
}

const WideFacet& UserFacet() {
  CharsetCvt::U8ToMb("abc");  // makes the user's locale global
  return GlobalFacet();
}

// Expects the user's locale in C++ and in the C runtime. An environment variable holds the suffix
// of the runtime's locale name.
void ExpectUserLocaleIsGlobal(const Encoding& encoding) {
  EXPECT_NE(std::locale(), std::locale::classic());
  const char* const end = std::getenv("TARSIO_TEST_RUNTIME_LOCALE");
  ASSERT_NE(end, nullptr);
  EXPECT_THAT(std::string(std::setlocale(LC_ALL, nullptr)), EndsWith(end));

  std::mbstate_t state{};
  const char* next = encoding.sample.data();
  wchar_t units[8] = {};
  wchar_t* nextUnit = units;
  EXPECT_EQ(GlobalFacet().in(state, next, next + encoding.sample.size(), next, units, units + 8,
                             nextUnit),
            WideFacet::ok);
  EXPECT_EQ(std::wstring(units, nextUnit), encoding.decoded);
}

TEST_P(CvtEncoding, SetsLocale) {
  const std::function<void()> conversions[] = {
      [] { CharsetCvt::MbToU8(""); },
      [] { CharsetCvt::U8ToMb("abc"); },
      // whatever becomes of it: 80 is a character above FF in some encodings
      [] { TextThrownBy<std::range_error>([] { CharsetCvt::MbToU8("A\x80"); }); },
  };
  for (const auto& convert : conversions) {
    std::locale::global(std::locale::classic());
    convert();
    ExpectUserLocaleIsGlobal(GetParam());
  }
  CharsetCvt::MbToU8("abc");
  CharsetCvt::U8ToMb("");
  CharsetCvt::WToU8(L"abc");
  ExpectUserLocaleIsGlobal(GetParam());
}

TEST_P(CvtEncoding, FacetRoom) {
  const WideFacet& facet = UserFacet();
  const auto expectPartial = [](const auto& convert, const auto& from, const auto& to) {
    for (size_t room = 1; room < to.size(); ++room) {
      SCOPED_TRACE(room);
      auto output = to;
      output.assign(to.size(), '?');
      auto* end = &output[0];
      const auto* next = from.data();
      std::mbstate_t state{};
      EXPECT_EQ(convert(state, next, next + from.size(), next, end, end + room, end),
                WideFacet::partial);
      const auto count = static_cast<size_t>(end - output.data());
      EXPECT_LE(count, room);
      EXPECT_EQ(output.substr(0, count), to.substr(0, count));
      EXPECT_EQ(output.find_first_not_of('?', count), std::string::npos);
    }
  };
  const std::string bytes = GetParam().sample + GetParam().sample;
  const std::wstring units = GetParam().decoded + GetParam().decoded;
  expectPartial([&facet](auto&&... args) { return facet.in(args...); }, bytes, units);
  expectPartial([&facet](auto&&... args) { return facet.out(args...); }, units, bytes);
}

TEST_P(CvtEncoding, LowSurrogate) {
  const WideFacet& facet = UserFacet();
  char bytes[8];
  char* nextByte = nullptr;
  std::mbstate_t state{};
  for (const wchar_t unit : {L'\xDC00', L'\xDFFF'}) {
    const wchar_t* next = nullptr;
    EXPECT_EQ(facet.out(state, &unit, &unit + 1, next, bytes, bytes + sizeof bytes, nextByte),
              WideFacet::error);
    EXPECT_EQ(next, &unit);
    EXPECT_EQ(nextByte, bytes);
  }
  EXPECT_EQ(facet.unshift(state, bytes, bytes + sizeof bytes, nextByte), WideFacet::noconv);
  EXPECT_EQ(nextByte, bytes);
}

// The file is longer than a stream's buffer and has characters that span two buffers.
TEST_P(CvtEncoding, FileStreams) {
  constexpr size_t kSamples = 10000;
  const ScopedDirectory directory;
  const std::string& sample = GetParam().sample;
  std::string bytes = "x";
  std::wstring text = L"x";
  for (size_t i = 0; i < kSamples; ++i) {
    bytes += sample;
    text += GetParam().decoded;
  }
  CharsetCvt::U8ToMb("abc");  // new streams use the global locale
  std::wofstream output(directory.Native("file"), std::ios::binary);
  output << text;
  output.close();
  EXPECT_TRUE(output.good());
  EXPECT_EQ(directory.Read("file"), bytes);

  std::wifstream input(directory.Native("file"), std::ios::binary);
  std::wstring begin(1 + kSamples / 10 * GetParam().decoded.size(), L'\0');
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
TEST_P(CvtEncoding, HalfPair) {
  const ScopedDirectory directory;
  CharsetCvt::U8ToMb("abc");
  const auto writes = [&directory](const wchar_t* text) {
    std::wofstream output(directory.Native("file"), std::ios::binary);
    try {
      output << text;
      output.close();
    } catch (const std::ios_base::failure&) {
      return false;
    }
    return output.good();
  };
  EXPECT_TRUE(writes(L"abc"));
  for (const wchar_t* text : {L"a\xD83D", L"a\xD83D-", L"a\xD83D\xD83D", L"a\xDE00"}) {
    EXPECT_FALSE(writes(text)) << testing::PrintToString(text);
  }
}

// The log's numbers have no separators, and the other conversions do not change.
TEST_P(CvtEncoding, OtherFunctions) {
  CharsetCvt::U8ToMb("abc");
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  tarsio::Log::GetInstance().DoLog(tarsio::LOG_LEVEL_INFO, "x.cpp", 1234567, "f", "%d", 7654321);
  EXPECT_THAT(records->All().at(0).text, EndsWith("][INFO][x.cpp:1234567] 7654321"));
  EXPECT_EQ(CharsetCvt::U8ToW("\xC3\xA9"), L"\x00C3\x00A9");
  EXPECT_EQ(CharsetCvt::WToU8(CharsetCvt::U8ToW(EveryByte())), EveryByte());
  EXPECT_EQ(TextThrownBy<std::range_error>([] { CharsetCvt::WToU8(L"\x20AC"); }), "bad conversion");
}

// ---- a user locale that does not exist ----

class CvtNoLocale : public testing::TestWithParam<std::string> {};

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(CvtNoLocale);
INSTANTIATE_TEST_SUITE_P(Environment, CvtNoLocale,
                         testing::ValuesIn(std::vector<std::string>(
                             NamedEncoding() == kNoSuchLocale ? 1 : 0, kNoSuchLocale)),
                         [](const auto& row) { return row.param; });

TEST_P(CvtNoLocale, Throws) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const std::function<void()> conversions[] = {[] { CharsetCvt::MbToU8(""); },
                                               [] { CharsetCvt::MbToU8("\xE9"); },
                                               [] { CharsetCvt::U8ToMb("abc"); }};
  for (const std::function<void()>& convert : conversions) {
    EXPECT_EQ(TextThrownBy<std::runtime_error>(convert), "bad locale name");
    EXPECT_EQ(std::locale(), std::locale::classic());
    EXPECT_STREQ(std::setlocale(LC_ALL, nullptr), "C");
  }
  EXPECT_EQ(CharsetCvt::MbToU8("\xC3\xA9"), "\xC3\xA9");
  EXPECT_TRUE(records->All().empty());
}

// Neither a locale nor a failure is cached.
TEST_P(CvtNoLocale, AsksEachTime) {
  const struct {
    const char* locale;
    std::string toU8;
    std::string toMb;
  } rows[] = {{"ja_JP.EUC-JP", "\xA7", "\x8F\xAA\xA4\xA1\xF8"},
              {"en_US.ISO-8859-1", "\xA1\xF8", "\xC2\xA7"},
              {"ja_JP.EUC-JP", "\xA7", "\x8F\xAA\xA4\xA1\xF8"}};
  const auto convert = [] { CharsetCvt::MbToU8("\xA1\xF8"); };
  for (const auto& row : rows) {
    EXPECT_EQ(TextThrownBy<std::runtime_error>(convert), "bad locale name");
    const ScopedVariable user("LC_ALL", row.locale);
    EXPECT_EQ(CharsetCvt::MbToU8("\xA1\xF8"), row.toU8);
    EXPECT_EQ(CharsetCvt::U8ToMb("\xC2\xA7"), row.toMb);
    EXPECT_STREQ(std::setlocale(LC_CTYPE, nullptr), row.locale);
  }
  EXPECT_EQ(TextThrownBy<std::runtime_error>(convert), "bad locale name");
  std::locale::global(std::locale::classic());
}

// ---- environment variables ----

constexpr char kVariable[] = "TARSIO_TEST_VARIABLE";
constexpr wchar_t kWideVariable[] = L"TARSIO_TEST_VARIABLE";

std::string Repeat(const std::string& text, size_t count) {
  std::string repeated;
  for (; count > 0; --count) repeated += text;
  return repeated;
}

// The default is accepted and never used (by design). Values are not cached.
TEST(GetEnv, Values) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const ScopedVariable unset(kVariable, std::nullopt);
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), "");
  for (const std::string value : {"", "C:\\Program Files; x=y %PATH% ", "caf\xC3\xA9",
                                  "a\xF0\x9F\x98\x80\xF4\x8F\xBF\xBFz", "\xEF\xBB\xBF"}) {
    const ScopedVariable variable(kVariable, value);
    EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), value);
  }
  EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), "");
  EXPECT_TRUE(records->All().empty());
}

TEST(GetEnv, LongValuesAreEmpty) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const std::string two = "\xC3\xA9";           // one unit
  const std::string three = "\xE4\xB8\xAD";     // one unit
  const std::string four = "\xF0\x9F\x98\x80";  // two units
  // The limits are 255 units and 254 bytes.
  for (const std::string& value : {std::string(254, 'a'), Repeat(two, 127),
                                   "aa" + Repeat(three, 84), "aa" + Repeat(four, 63)}) {
    const ScopedVariable variable(kVariable, value);
    EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), value);
    for (const std::string& more : {std::string("a"), std::string("aa"), two, four, value}) {
      const ScopedVariable longer(kVariable, value + more);
      EXPECT_EQ(CharsetCvt::GetEnv(kWideVariable, "default"), "") << value << more;
    }
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

TEST(GetEnv, OddNames) {
  const ScopedVariable variable("TARSIO_\xC3\xA9\xF0\x9F\x98\x80", "B=value");
  // A surrogate pair, for any size of wchar_t.
  const std::wstring name = std::wstring(L"TARSIO_\x00E9") + wchar_t{0xD83D} + wchar_t{0xDE00};
  EXPECT_EQ(CharsetCvt::GetEnv(name, ""), "B=value");
  EXPECT_EQ(CharsetCvt::GetEnv(name + std::wstring(1, L'\0') + L"X", ""), "B=value");
  EXPECT_EQ(CharsetCvt::GetEnv(name + L"=B", ""), "");
  EXPECT_EQ(CharsetCvt::GetEnv(name + L"=", ""), "");
  EXPECT_EQ(CharsetCvt::GetEnv(L"", "default"), "");
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
