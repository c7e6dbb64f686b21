#include "common/charset_cvt.h"

#include <algorithm>
#include <cwchar>
#include <locale>
#include <stdexcept>
#include <type_traits>

#include "common/log.h"
#include "platform/platform.h"

namespace tarsio {

namespace {

// The facet of the user's locale between wide characters and its multibyte encoding.
using MultibyteFacet = std::codecvt<wchar_t, char, std::mbstate_t>;

constexpr size_t kEnvironmentUnits = 256;  // a value's UTF-16 units and their terminator
constexpr size_t kEnvironmentBytes = 255;  // its bytes in UTF-8 and their terminator

constexpr char kEmptyParameter[] = "Parameter is empty!";

// `line` is where the report is made, as every report says.
template <typename... Args>
void Report(int line, const char* function, const char* format, Args... args) {
  Log::GetInstance().DoLog(LOG_LEVEL_INFO, __FILE__, line, function, format, args...);
}

void ReportUnlessOk(std::codecvt_base::result result, int line, const char* function) {
  if (result != std::codecvt_base::ok) {
    Report(line, function, "Convert error: %d", static_cast<int>(result));
  }
}

int ContinuationCount(unsigned char lead) {
  if (lead <= 0x7F) return 0;
  if ((lead & 0xE0) == 0xC0) return 1;
  if ((lead & 0xF0) == 0xE0) return 2;
  if ((lead & 0xF8) == 0xF0) return 3;
  return -1;
}

// The classic locale's rules between bytes and wide characters, which the standard libraries here
// do not follow beyond ASCII: the same value on both sides, up to 0xFF.
std::wstring ClassicDecode(const std::string& s) {
  std::wstring wide(s.size(), L'\0');
  std::transform(s.begin(), s.end(), wide.begin(),
                 [](char c) { return static_cast<wchar_t>(static_cast<unsigned char>(c)); });
  return wide;
}

std::string ClassicEncode(const std::wstring& s) {
  std::string bytes(s.size(), '\0');
  std::transform(s.begin(), s.end(), bytes.begin(), [](wchar_t unit) {
    if (static_cast<std::make_unsigned_t<wchar_t>>(unit) > 0xFF)
      throw std::range_error("bad conversion");
    return static_cast<char>(unit);
  });
  return bytes;
}

// Each byte as a unit of the same signed value, and each unit as its low byte.
template <typename Units>
Units SignExtend(const std::string& s) {
  using Unit = typename Units::value_type;
  Units units(s.size(), Unit());
  std::transform(s.begin(), s.end(), units.begin(),
                 [](char c) { return static_cast<Unit>(static_cast<signed char>(c)); });
  return units;
}

template <typename Units>
std::string TakeLowBytes(const Units& units) {
  std::string bytes(units.size(), '\0');
  std::transform(units.begin(), units.end(), bytes.begin(),
                 [](typename Units::value_type unit) { return static_cast<char>(unit & 0xFF); });
  return bytes;
}

// Decodes `s` into `wide`, which has a unit for each byte, and sets `end` behind what was decoded.
// Some facets join the halves of a character across a zero byte, and are content with a text that
// ends within one; so they get the text between two zeros at a time, and their state is looked at.
std::codecvt_base::result Decode(const MultibyteFacet& facet, const std::string& s,
                                 std::wstring& wide, wchar_t** end) {
  const char* const textEnd = s.data() + s.size();
  const char* next = s.data();
  while (true) {
    const char* const zero = std::find(next, textEnd, '\0');
    std::mbstate_t state{};
    std::codecvt_base::result result =
        facet.in(state, next, zero, next, *end, wide.data() + wide.size(), *end);
    const bool cutOff = result == std::codecvt_base::partial || std::mbsinit(&state) == 0;
    if (result != std::codecvt_base::error && cutOff) {
      result = zero == textEnd ? std::codecvt_base::partial : std::codecvt_base::error;
    }
    if (result != std::codecvt_base::ok || zero == textEnd) return result;
    *(*end)++ = L'\0';
    next = zero + 1;
  }
}

}  // namespace

bool CharsetCvt::IsASCII(const std::string& s) {
  return std::all_of(s.begin(), s.end(),
                     [](char c) { return static_cast<unsigned char>(c) <= 0x7F; });
}

bool CharsetCvt::IsU8(const std::string& s) {
  if (s.empty()) return false;
  const auto byteAt = [&s](size_t index) { return static_cast<unsigned char>(s[index]); };
  for (size_t i = 0; i < s.size(); ++i) {
    // Surrogates. Of all the forms that stand for no character, only these are refused.
    if (byteAt(i) == 0xED && i + 1 < s.size() && (byteAt(i + 1) & 0xA0) == 0xA0) return false;
    const int continuations = ContinuationCount(byteAt(i));
    if (continuations < 0) return false;
    for (int left = continuations; left > 0; --left) {
      ++i;
      if (i == s.size() || (byteAt(i) & 0xC0) != 0x80) return false;
    }
  }
  return true;
}

bool CharsetCvt::StartsWithBom(const std::string& s) {
  return IsU8(s) && s.compare(0, 3, "\xEF\xBB\xBF") == 0;
}

std::string CharsetCvt::MbToU8(const std::string& s) {
  if (IsU8(s)) return s;
  const std::locale user = platform::MakeUserLocaleGlobal();
  const auto& facet = std::use_facet<MultibyteFacet>(user);

  std::wstring wide(s.size(), L'\0');
  wchar_t* end = wide.data();
  const std::codecvt_base::result result = Decode(facet, s, wide, &end);
  ReportUnlessOk(result, __LINE__, "tarsio::CharsetCvt::MbToU8");
  // Otherwise the buffer keeps its full length, zeros included.
  if (result == std::codecvt_base::ok) wide.resize(static_cast<size_t>(end - wide.data()));
  return ClassicEncode(wide);
}

std::string CharsetCvt::U8ToMb(const std::string& s) {
  constexpr char kFunction[] = "tarsio::CharsetCvt::U8ToMb";
  if (!IsU8(s)) {
    Report(__LINE__, kFunction, "Parameter is Not a valid UTF-8 string!");
    return {};
  }
  const std::locale user = platform::MakeUserLocaleGlobal();
  const auto& facet = std::use_facet<MultibyteFacet>(user);

  const std::wstring wide = ClassicDecode(s);
  std::string bytes(wide.size() * static_cast<size_t>(facet.max_length()), '\0');
  std::mbstate_t state{};
  const wchar_t* source = wide.data();
  char* end = bytes.data();
  const std::codecvt_base::result result =
      facet.out(state, source, source + wide.size(), source, end, end + bytes.size(), end);
  ReportUnlessOk(result, __LINE__, kFunction);
  if (result == std::codecvt_base::ok) bytes.resize(static_cast<size_t>(end - bytes.data()));
  return bytes;
}

std::string CharsetCvt::WToU8(const std::wstring& s) {
  if (s.empty()) Report(__LINE__, "tarsio::CharsetCvt::WToU8", kEmptyParameter);
  return ClassicEncode(s);
}

std::wstring CharsetCvt::U8ToW(const std::string& s) {
  if (s.empty()) Report(__LINE__, "tarsio::CharsetCvt::U8ToW", kEmptyParameter);
  return ClassicDecode(s);
}

std::string CharsetCvt::U16ToU8(const std::u16string& s) {
  if (s.empty()) Report(__LINE__, "tarsio::CharsetCvt::U16ToU8", kEmptyParameter);
  return TakeLowBytes(s);
}

std::u16string CharsetCvt::U8ToU16(const std::string& s) {
  if (s.empty()) Report(__LINE__, "tarsio::CharsetCvt::U8ToU16", kEmptyParameter);
  return SignExtend<std::u16string>(s);
}

std::string CharsetCvt::U32ToU8(const std::u32string& s) {
  if (s.empty()) Report(__LINE__, "tarsio::CharsetCvt::U32ToU8", kEmptyParameter);
  return TakeLowBytes(s);
}

std::u32string CharsetCvt::U8ToU32(const std::string& s) {
  if (s.empty()) Report(__LINE__, "tarsio::CharsetCvt::U8ToU32", kEmptyParameter);
  return SignExtend<std::u32string>(s);
}

std::string CharsetCvt::GetEnv(const std::wstring& name, const std::string& /*defaultValue*/) {
  const std::string value = platform::Narrow(platform::Environment(name, kEnvironmentUnits));
  return value.size() < kEnvironmentBytes ? value : std::string();
}

}  // namespace tarsio
