#include "common/charset_cvt.h"

#include <algorithm>
#include <array>
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

// The messages hold no conversion, and a host's sink gets them as formats.
#pragma GCC diagnostic ignored "-Wformat-security"

// `line` is where the report is made, as every report says.
void Report(int line, const char* function, const char* format) {
  Log::GetInstance().DoLog(LOG_LEVEL_INFO, __FILE__, line, function, format);
}

void ReportUnlessOk(std::codecvt_base::result result, int line, const char* function) {
  if (result != std::codecvt_base::ok) {
    Log::GetInstance().DoLog(LOG_LEVEL_INFO, __FILE__, line, function, "Convert error: %d",
                             static_cast<int>(result));
  }
}

// The bytes are looked at in blocks of a fixed size, by loops without branches: compilers turn
// those into vector code. A text is given up at the first block that decides.
constexpr size_t kBlockSize = 256;
constexpr size_t kReach = 3;  // how many of the bytes before it a byte of UTF-8 depends on

unsigned char HighestByte(const unsigned char* bytes, size_t count) {
  unsigned char highest = 0;
  for (size_t i = 0; i < count; ++i) highest = std::max(highest, bytes[i]);
  return highest;
}

// Whether a byte suits the three before it: it is a continuation exactly when one of them asks for
// one, and stands for no surrogate. Tells nothing of lead bytes from F8 up, which nothing allows.
bool Fits(const unsigned char* byte) {
  constexpr signed char kFirstOther = -0x40;  // 80 to BF, the continuations, are below as signed
  const bool continues = static_cast<signed char>(byte[0]) < kFirstOther;
  // NOLINTBEGIN(readability-implicit-bool-conversion): the operators without branches
  const bool unasked = (byte[-1] < 0xC0) & (byte[-2] < 0xE0) & (byte[-3] < 0xF0);
  const bool noSurrogate = (byte[-1] != 0xED) | (byte[0] < 0xA0);
  return (continues != unasked) & noSurrogate;
  // NOLINTEND(readability-implicit-bool-conversion)
}

bool AllFit(const unsigned char* bytes, size_t count) {
  unsigned char fit = 1;  // no bool, which keeps the loop from becoming vector code
  for (size_t i = 0; i < count; ++i) fit &= static_cast<unsigned char>(Fits(bytes + i));
  return fit != 0;
}

// The bytes before the block that reach into it are looked at too.
bool IsU8Block(const unsigned char* bytes, size_t count) {
  const unsigned char highest = HighestByte(bytes - kReach, kReach + count);
  return highest < 0x80 || (highest < 0xF8 && AllFit(bytes, count));
}

const unsigned char* Bytes(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

// The classic locale's rules between bytes and wide characters, which the standard libraries here
// do not follow beyond ASCII: the same value on both sides, up to 0xFF.
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

// Each byte as a unit of the same signed value.
template <typename Units>
Units SignExtend(const std::string& s) {
  const auto* const bytes = reinterpret_cast<const signed char*>(s.data());
  return Units(bytes, bytes + s.size());
}

// Each unit as its low byte.
template <typename Units>
std::string TakeLowBytes(const Units& units) {
  return std::string(units.begin(), units.end());
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
    // Some encodings have bytes that stand for several characters.
    if (*end == wide.data() + wide.size()) return std::codecvt_base::partial;
    *(*end)++ = L'\0';
    next = zero + 1;
  }
}

}  // namespace

bool CharsetCvt::IsASCII(const std::string& s) {
  size_t done = 0;
  for (; s.size() - done >= kBlockSize; done += kBlockSize) {
    if (HighestByte(Bytes(s) + done, kBlockSize) > 0x7F) return false;
  }
  return HighestByte(Bytes(s) + done, s.size() - done) <= 0x7F;
}

bool CharsetCvt::IsU8(const std::string& s) {
  if (s.empty()) return false;
  const unsigned char* const bytes = Bytes(s);
  const size_t edge = std::min(s.size(), kReach);
  // Zeros stand for what is before the text and behind it: they neither ask nor continue.
  using Edge = std::array<unsigned char, 2 * kReach>;
  Edge begin{};
  Edge end{};
  std::copy_n(bytes, edge, begin.begin() + kReach);
  std::copy_n(bytes + s.size() - edge, edge, end.begin() + (kReach - edge));
  if (!IsU8Block(begin.data() + kReach, kReach) || !IsU8Block(end.data() + kReach, kReach))
    return false;

  size_t done = edge;
  for (; s.size() - done >= kBlockSize; done += kBlockSize) {
    if (!IsU8Block(bytes + done, kBlockSize)) return false;
  }
  return done == s.size() || IsU8Block(bytes + done, s.size() - done);
}

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
