// Splitting, trimming, case conversion, searching, replacing, and the digest.

#include <openssl/sha.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "common/string_utils.h"
#include "support/bench.h"
#include "support/or_of_bytes.h"

#ifdef TARSIO_BENCH_ABSEIL
#include <absl/strings/ascii.h>
#include <absl/strings/match.h>
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#endif
#ifdef TARSIO_BENCH_BOOST
#include <boost/algorithm/string.hpp>
#endif
#ifdef TARSIO_BENCH_GLIB
#include <glib.h>
#endif
#ifdef TARSIO_BENCH_POCO
#include <Poco/String.h>
#include <Poco/StringTokenizer.h>
#endif

namespace tarsio_bench {

namespace {

using tarsio::StringUtils;
using Strings = std::vector<std::string>;

// Returns `bytes` bytes: fields of 3 to 27 characters with separators. std::string stores the short
// ones without allocating.
std::string Line(size_t bytes, char separator) {
  constexpr size_t kLengths[] = {5, 12, 3, 27, 9, 16, 7};
  std::string line;
  for (size_t i = 0; line.size() < bytes; ++i) {
    if (i > 0) line += separator;
    for (size_t c = 0; c < kLengths[i % std::size(kLengths)]; ++c) {
      line += static_cast<char>((c % 2 == 0 ? 'a' : 'A') + (i + c) % 26);
    }
  }
  line.resize(bytes);
  line.back() = '.';
  return line;
}

#ifdef TARSIO_BENCH_GLIB
// Frees GLib's results, since the other results are destroyed, too.
bool Freed(char* text) {
  g_free(text);
  return text != nullptr;
}

bool Freed(char** pieces) {
  g_strfreev(pieces);
  return pieces != nullptr;
}
#endif

void AddSplitting(size_t bytes) {
  const std::string line = Line(bytes, ',');
  const std::string comma = ",";

  for (const auto& [name, function] :
       {std::pair("split", &StringUtils::SplitString),
        std::pair("split,_drop_an_empty_last_piece", &StringUtils::SplitAllByString)}) {
    const std::string split = Sized(name, "bytes", bytes);
    AddCall(split, "ours", [line, comma, function = function] { return function(line, comma); });
#ifdef TARSIO_BENCH_ABSEIL
    AddCall(split, "peer:Abseil", [line] { return Strings(absl::StrSplit(line, ',')); });
#endif
#ifdef TARSIO_BENCH_BOOST
    AddCall(split, "peer:Boost", [line] {
      Strings pieces;
      boost::split(pieces, line, [](char c) { return c == ','; });
      return pieces;
    });
#endif
#ifdef TARSIO_BENCH_POCO
    AddCall(split, "peer:POCO",
            [line, comma] { return Poco::StringTokenizer(line, comma).count(); });
#endif
#ifdef TARSIO_BENCH_GLIB
    AddCall(split, "peer:GLib", [line] { return Freed(g_strsplit(line.c_str(), ",", 0)); });
#endif
    const Strings pieces = function(line, comma);
    AddCall(split, "limit:copy", [pieces] { return Strings(pieces); });
  }

  // Splits after a key of twelve characters.
  std::string pair = "content_type" + Line(bytes - 12, ',');
  pair[12] = '=';
  const std::string equals = "=";
  const std::string first = Sized("split_at_the_first_delimiter", "bytes", bytes);
  AddCall(first, "ours", [pair, equals] { return StringUtils::SplitFristByString(pair, equals); });
#ifdef TARSIO_BENCH_ABSEIL
  AddCall(first, "peer:Abseil",
          [pair] { return Strings(absl::StrSplit(pair, absl::MaxSplits('=', 1))); });
#endif
#ifdef TARSIO_BENCH_GLIB
  AddCall(first, "peer:GLib", [pair] { return Freed(g_strsplit(pair.c_str(), "=", 2)); });
#endif
  AddCall(first, "limit:copy", [pair] { return std::string(pair); });
}

// `change` works in place, so each iteration begins with a copy.
template <typename Change>
void AddInPlace(const std::string& workload, const std::string& who, const std::string& text,
                Change change) {
  Add(workload, who, [text, change](benchmark::State& state) {
    std::string changed;
    for (auto _ : state) {
      changed = text;
      change(changed);
      benchmark::DoNotOptimize(changed.data());
      benchmark::ClobberMemory();
    }
  });
}

void AddTrimming(size_t bytes) {
  const std::string text = "  \t " + Line(bytes - 8, ' ') + " \r\n ";
  const std::string trim = Sized("trim", "bytes", bytes);
  AddInPlace(trim, "ours", text, [](std::string& s) { StringUtils::Trim(s); });
#ifdef TARSIO_BENCH_ABSEIL
  AddInPlace(trim, "peer:Abseil", text, [](std::string& s) { absl::StripAsciiWhitespace(&s); });
#endif
#ifdef TARSIO_BENCH_BOOST
  AddInPlace(trim, "peer:Boost", text, [](std::string& s) { boost::trim(s); });
#endif
#ifdef TARSIO_BENCH_POCO
  AddInPlace(trim, "peer:POCO", text, [](std::string& s) { Poco::trimInPlace(s); });
#endif
#ifdef TARSIO_BENCH_GLIB
  AddInPlace(trim, "peer:GLib", text, [](std::string& s) { g_strstrip(s.data()); });
#endif
  AddInPlace(trim, "limit:copy", text, [](std::string& /*s*/) {});
}

void AddCase(size_t bytes) {
  const std::string line = Line(bytes, ' ');
  const std::string upper = Sized("to_upper_case", "bytes", bytes);
  const std::string lower = Sized("to_lower_case", "bytes", bytes);
  AddCall(upper, "ours", [line] { return StringUtils::ToUpper(line); });
  AddCall(lower, "ours", [line] { return StringUtils::ToLower(line); });
#ifdef TARSIO_BENCH_ABSEIL
  AddCall(upper, "peer:Abseil", [line] { return absl::AsciiStrToUpper(line); });
  AddCall(lower, "peer:Abseil", [line] { return absl::AsciiStrToLower(line); });
#endif
#ifdef TARSIO_BENCH_BOOST
  AddCall(upper, "peer:Boost", [line] { return boost::to_upper_copy(line); });
  AddCall(lower, "peer:Boost", [line] { return boost::to_lower_copy(line); });
#endif
#ifdef TARSIO_BENCH_POCO
  AddCall(upper, "peer:POCO", [line] { return Poco::toUpper(line); });
  AddCall(lower, "peer:POCO", [line] { return Poco::toLower(line); });
#endif
#ifdef TARSIO_BENCH_GLIB
  AddCall(upper, "peer:GLib",
          [line] { return Freed(g_ascii_strup(line.data(), static_cast<gssize>(line.size()))); });
  AddCall(lower, "peer:GLib",
          [line] { return Freed(g_ascii_strdown(line.data(), static_cast<gssize>(line.size()))); });
#endif
  AddCall(upper, "limit:copy", [line] { return std::string(line); });
  AddCall(lower, "limit:copy", [line] { return std::string(line); });
}

void AddSearching(size_t bytes) {
  std::string line = Line(bytes, ' ');
  const std::string needle = "needle";
  line.replace(line.size() - needle.size(), needle.size(), needle);
  const std::string contains = Sized("find_a_substring", "bytes", bytes);
  AddCall(contains, "ours", [line, needle] { return StringUtils::Contains(line, needle); });
#ifdef TARSIO_BENCH_ABSEIL
  AddCall(contains, "peer:Abseil", [line, needle] { return absl::StrContains(line, needle); });
#endif
#ifdef TARSIO_BENCH_BOOST
  AddCall(contains, "peer:Boost", [line, needle] { return boost::contains(line, needle); });
#endif
#ifdef TARSIO_BENCH_GLIB
  AddCall(contains, "peer:GLib", [line, needle] {
    return g_strstr_len(line.data(), static_cast<gssize>(line.size()), needle.c_str());
  });
#endif
  AddCall(contains, "limit:or", [line] { return OrOfBytes(line); });

  // A long prefix: the line without its last character.
  const std::string prefix = line.substr(0, line.size() - 1);
  const std::string startsWith = Sized("compare_a_prefix", "bytes", bytes);
  AddCall(startsWith, "ours", [line, prefix] { return StringUtils::StartsWith(line, prefix); });
#ifdef TARSIO_BENCH_ABSEIL
  AddCall(startsWith, "peer:Abseil", [line, prefix] { return absl::StartsWith(line, prefix); });
#endif
#ifdef TARSIO_BENCH_BOOST
  AddCall(startsWith, "peer:Boost", [line, prefix] { return boost::starts_with(line, prefix); });
#endif
#ifdef TARSIO_BENCH_POCO
  AddCall(startsWith, "peer:POCO", [line, prefix] { return Poco::startsWith(line, prefix); });
#endif
#ifdef TARSIO_BENCH_GLIB
  AddCall(startsWith, "peer:GLib",
          [line, prefix] { return g_str_has_prefix(line.c_str(), prefix.c_str()); });
#endif
  AddCall(startsWith, "limit:memcmp",
          [line, prefix] { return std::memcmp(line.data(), prefix.data(), prefix.size()) == 0; });
}

void AddReplacing(size_t bytes) {
  const std::string line = Line(bytes, ' ');
  const std::string blanks = " \t";
  const std::string replace = Sized("replace_characters", "bytes", bytes);
  AddCall(replace, "ours",
          [line, blanks] { return StringUtils::SpaceToUnderscore(line, blanks, '_'); });
#ifdef TARSIO_BENCH_ABSEIL
  AddCall(replace, "peer:Abseil", [line] {
    return absl::StrReplaceAll(line, {{" ", "_"}, {"\t", "_"}});
  });
#endif
#ifdef TARSIO_BENCH_BOOST
  AddCall(replace, "peer:Boost", [line] {
    return boost::replace_all_copy(boost::replace_all_copy(line, " ", "_"), "\t", "_");
  });
#endif
#ifdef TARSIO_BENCH_POCO
  AddCall(replace, "peer:POCO", [line, blanks, underscores = std::string("__")] {
    return Poco::translate(line, blanks, underscores);
  });
#endif
#ifdef TARSIO_BENCH_GLIB
  AddCall(replace, "peer:GLib", [line, blanks] {
    std::string changed = line;
    g_strdelimit(changed.data(), blanks.c_str(), '_');
    return changed;
  });
#endif
  AddCall(replace, "limit:copy", [line] { return std::string(line); });
}

std::array<unsigned char, SHA256_DIGEST_LENGTH> Digest(const std::string& text) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  return digest;
}

std::string OpenSslDigestText(const std::string& text) {
  constexpr char kDigits[] = "0123456789abcdef";
  const auto digest = Digest(text);
  std::string digits(2 * digest.size(), '\0');
  for (size_t i = 0; i < digest.size(); ++i) {
    digits[2 * i] = kDigits[digest[i] >> 4];
    digits[2 * i + 1] = kDigits[digest[i] & 0x0F];
  }
  return digits;
}

void AddDigest(size_t bytes) {
  const std::string text = Line(bytes, ' ');
  const std::string digest = Sized("SHA-256_digest", "bytes", bytes);
  AddCall(
      digest, "ours", [text] { return StringUtils::GetHashText(text.data(), text.size()); }, bytes);
  AddCall(
      digest, "peer:OpenSSL", [text] { return OpenSslDigestText(text); }, bytes);
#ifdef TARSIO_BENCH_GLIB
  AddCall(
      digest, "peer:GLib",
      [text] {
        return Freed(g_compute_checksum_for_data(
            G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(text.data()), text.size()));
      },
      bytes);
#endif
}

}  // namespace

void RegisterAll() {
  for (const size_t bytes : Sizes{64, 1024, 65536}) {
    AddSplitting(bytes);
    AddTrimming(bytes);
    AddCase(bytes);
    AddSearching(bytes);
    AddReplacing(bytes);
  }
  for (const size_t bytes : Sizes{64, 4096, 1 << 20}) AddDigest(bytes);
}

}  // namespace tarsio_bench
