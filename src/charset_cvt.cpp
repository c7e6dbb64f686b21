#include "common/charset_cvt.h"

#include <algorithm>
#include <cwchar>
#include <locale>
#include <stdexcept>
#include <type_traits>

#include "common/log.h"
#include "platform/platform.h"
#include "utf8_check.h"

namespace tarsio {

namespace {

// The facet of the user's locale between wide characters and its multibyte encoding.
using MultibyteFacet = std::codecvt<wchar_t, char, std::mbstate_t>;

constexpr size_t kEnvironmentUnits = 256;  // a value's UTF-16 units and their terminator
constexpr size_t kEnvironmentBytes = 255;  // its bytes in UTF-8 and their terminator

constexpr char kEmptyParameter[] = "Parameter is empty!";

// Sinks receive the messages as formats. None of them contains a "%".
#pragma GCC diagnostic ignored "-Wformat-security"

// `line` is the line of the report in this file.
void Report(int line, const char* function, const char* format) {
  Log::GetInstance().DoLog(LOG_LEVEL_INFO, __FILE__, line, function, format);
}

void ReportUnlessOk(std::codecvt_base::result result, int line, const char* function) {
  if (result != std::codecvt_base::ok) {
    Log::GetInstance().DoLog(LOG_LEVEL_INFO, __FILE__, line, function, "Convert error: %d",
                             static_cast<int>(result));
  }
}

constexpr size_t kBlockSize = 256;

const unsigned char* Bytes(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

// The conversions of the classic locale: a byte and its wide character have the same value, up to
// 0xFF. The standard libraries implement this for ASCII only.
std::wstring ClassicDecode(const std::string& s) {
  return std::wstring(Bytes(s), Bytes(s) + s.size());
}

std::string ClassicEncode(const std::wstring& s) {
  using Value = std::make_unsigned_t<wchar_t>;
  std::string bytes(s.size(), '\0');
  const wchar_t* const units = s.data();
  for (size_t done = 0; done < s.size(); done += kBlockSize) {
    const size_t count = std::min(kBlockSize, s.size() - done);
    Value bits = 0;
    for (size_t i = 0; i < count; ++i) bits |= static_cast<Value>(units[done + i]);
    if (bits > 0xFF) throw std::range_error("bad conversion");
    std::copy_n(units + done, count, bytes.data() + done);
  }
  return bytes;
}

// Converts each byte to a unit of the same signed value.
template <typename Units>
Units SignExtend(const std::string& s) {
  const auto* const bytes = reinterpret_cast<const signed char*>(s.data());
  return Units(bytes, bytes + s.size());
}

// Converts each unit to its low byte.
template <typename Units>
std::string TakeLowBytes(const Units& units) {
  return std::string(units.begin(), units.end());
}

// Decodes `s` into `wide`, which has one unit per byte, and sets `end` to the end of the result.
// Decodes the parts between NUL bytes separately and checks the facet's state after each: some
// facets combine the halves of a character across a NUL, or accept an incomplete character at the
// end.
std::codecvt_base::result Decode(const MultibyteFacet& facet, const std::string& s,
                                 std::wstring& wide, wchar_t** end) {
  const char* const inputEnd = s.data() + s.size();
  const char* next = s.data();
  while (true) {
    const char* const zero = std::find(next, inputEnd, '\0');
    std::mbstate_t state{};
    std::codecvt_base::result result =
        facet.in(state, next, zero, next, *end, wide.data() + wide.size(), *end);
    const bool cutOff = result == std::codecvt_base::partial || std::mbsinit(&state) == 0;
    if (result != std::codecvt_base::error && cutOff) {
      result = zero == inputEnd ? std::codecvt_base::partial : std::codecvt_base::error;
    }
    if (result != std::codecvt_base::ok || zero == inputEnd) return result;
    // In some encodings one byte decodes to several characters.
    if (*end == wide.data() + wide.size()) return std::codecvt_base::partial;
    *(*end)++ = L'\0';
    next = zero + 1;
  }
}

}  // namespace

bool CharsetCvt::IsASCII(const std::string& s) { return IsAscii(Bytes(s), s.size()); }

bool CharsetCvt::IsU8(const std::string& s) { return !s.empty() && IsUtf8(Bytes(s), s.size()); }

bool CharsetCvt::StartsWithBom(const std::string& s) {
  return s.compare(0, 3, "\xEF\xBB\xBF") == 0 && IsU8(s);
}

std::string CharsetCvt::MbToU8(const std::string& s) {
  if (IsU8(s)) return s;
  const std::locale user = platform::MakeUserLocaleGlobal();
  const auto& facet = std::use_facet<MultibyteFacet>(user);

  std::wstring wide(s.size(), L'\0');
  wchar_t* end = wide.data();
  const std::codecvt_base::result result = Decode(facet, s, wide, &end);
  ReportUnlessOk(result, __LINE__, "tarsio::CharsetCvt::MbToU8");
  // On failure the result keeps its full length, including the NULs (by design).
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
