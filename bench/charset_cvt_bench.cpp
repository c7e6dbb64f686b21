// Encoding checks, and the conversions that widen or narrow each element.

#include <string>

#include "common/charset_cvt.h"
#include "support/bench.h"
#include "support/or_of_bytes.h"

#ifdef TARSIO_BENCH_ABSEIL
#include <absl/algorithm/container.h>
#include <absl/strings/ascii.h>
#endif
#ifdef TARSIO_BENCH_GLIB
#include <glib.h>
#endif
#ifdef TARSIO_BENCH_POCO
#include <Poco/UTF8Encoding.h>
#endif

namespace tarsio_bench {

namespace {

using tarsio::CharsetCvt;

// Repeats `sample` and pads with spaces to `bytes`.
std::string Repeat(const std::string& sample, size_t bytes) {
  std::string text;
  while (text.size() + sample.size() <= bytes) text += sample;
  text.resize(bytes, ' ');
  return text;
}

std::string Ascii(size_t bytes) { return Repeat("The quick brown fox jumps over it. ", bytes); }

// Characters of one to four bytes, in runs as in natural text.
std::string Mixed(size_t bytes) {
  return Repeat(
      "Gr\xC3\xB6\xC3\x9F"
      "e \xE2\x82\xAC 12, \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80! ",
      bytes);
}

std::string Emoji(size_t bytes) { return Repeat("\xF0\x9F\x98\x80", bytes); }

#ifdef TARSIO_BENCH_POCO
bool PocoIsU8(const std::string& text) {
  static const Poco::UTF8Encoding encoding;
  const auto* next = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = next + text.size();
  while (next < end) {
    const int length = encoding.sequenceLength(next, 1);
    if (length < 1 || length > end - next || !Poco::UTF8Encoding::isLegal(next, length))
      return false;
    next += length;
  }
  return true;
}
#endif

void AddChecks(size_t bytes) {
  const struct {
    const char* name;
    std::string text;
  } rows[] = {{"IsU8_of_ASCII", Ascii(bytes)},
              {"IsU8_of_mixed_UTF-8", Mixed(bytes)},
              {"IsU8_of_emoji", Emoji(bytes)}};
  for (const auto& row : rows) {
    const std::string& text = row.text;
    const std::string isU8 = Sized(row.name, "bytes", bytes);
    AddCall(
        isU8, "ours", [text] { return CharsetCvt::IsU8(text); }, bytes);
#ifdef TARSIO_BENCH_GLIB
    AddCall(
        isU8, "peer:GLib",
        [text] { return g_utf8_validate_len(text.data(), text.size(), nullptr); }, bytes);
#endif
#ifdef TARSIO_BENCH_POCO
    AddCall(
        isU8, "peer:POCO", [text] { return PocoIsU8(text); }, bytes);
#endif
    AddCall(
        isU8, "limit:or", [text] { return OrOfBytes(text); }, bytes);
  }

  const std::string text = Ascii(bytes);
  const std::string isAscii = Sized("IsASCII", "bytes", bytes);
  AddCall(
      isAscii, "ours", [text] { return CharsetCvt::IsASCII(text); }, bytes);
#ifdef TARSIO_BENCH_ABSEIL
  AddCall(
      isAscii, "peer:Abseil",
      [text] {
        return absl::c_all_of(text, [](unsigned char c) { return absl::ascii_isascii(c); });
      },
      bytes);
#endif
#ifdef TARSIO_BENCH_GLIB
  AddCall(
      isAscii, "peer:GLib", [text] { return g_str_is_ascii(text.c_str()); }, bytes);
#endif
  AddCall(
      isAscii, "limit:or", [text] { return OrOfBytes(text); }, bytes);
}

// The peer is the result's range constructor, the limit a copy of the result.
template <typename To, typename From, typename Convert>
void AddConversion(const char* name, const From& text, Convert convert) {
  const std::string workload = Sized(name, "bytes", text.size());
  AddCall(
      workload, "ours", [text, convert] { return convert(text); }, text.size());
  AddCall(
      workload, "peer:range", [text] { return To(text.begin(), text.end()); }, text.size());
  const To result = convert(text);
  AddCall(
      workload, "limit:copy", [result] { return To(result); }, text.size());
}

void AddConversions(size_t bytes) {
  const std::string text = Ascii(bytes);
  AddConversion<std::wstring>("U8ToW", text, CharsetCvt::U8ToW);
  AddConversion<std::string>("WToU8", CharsetCvt::U8ToW(text), CharsetCvt::WToU8);
  AddConversion<std::u16string>("U8ToU16", text, CharsetCvt::U8ToU16);
  AddConversion<std::string>("U16ToU8", CharsetCvt::U8ToU16(text), CharsetCvt::U16ToU8);
  AddConversion<std::u32string>("U8ToU32", text, CharsetCvt::U8ToU32);
  AddConversion<std::string>("U32ToU8", CharsetCvt::U8ToU32(text), CharsetCvt::U32ToU8);
}

}  // namespace

void RegisterAll() {
  for (const size_t bytes : Sizes{64, 4096, 1 << 20}) {
    AddChecks(bytes);
    AddConversions(bytes);
  }
}

}  // namespace tarsio_bench
