#ifndef TARSIO_COMMON_STRING_UTILS_H_
#define TARSIO_COMMON_STRING_UTILS_H_

/// \file
/// Helpers for byte strings: splitting, trimming, case, tests, replacement, and a SHA-256 text.

#include <cstddef>
#include <string>
#include <vector>

#include "common/export.h"

namespace tarsio {

/// Functions on byte strings. Texts may hold any bytes, NUL included.
///
/// The three splitting functions differ. All match the delimiter as a whole, from left to right,
/// without overlaps:
///
///     text, delimiter   SplitString   SplitAllByString   SplitFristByString
///     "a,b"      ","    a b           a b                a b
///     "a,,b"     ","    a "" b        a "" b             a ",b"
///     "a,b,"     ","    a b ""        a b                a "b,"
///     ",a"       ","    "" a          "" a               "" a
///     "abc"      ","    abc           abc abc            abc
///     ""         ","    (nothing)     ""                 ""
///     "a-"       "--"   a             a- a-              a-
///     "ab"       ""     ab            ab                 "" ab
///
/// Threads: every function may be called from any thread at once. Trim(), ToUpper() and ToLower()
/// follow the C runtime's current locale, which other code may change.
///
/// Throws: nothing but memory exhaustion.
class TARSIO_COMMON_API StringUtils {
 public:
  /// The pieces between delimiters, empty ones kept. The search runs over `s` with one more
  /// delimiter after it, so a tail of `s` that begins a delimiter is completed by it and cut.
  static std::vector<std::string> SplitString(const std::string& s, const std::string& delimiter);

  /// The pieces between delimiters; an empty last piece is dropped. Where the delimiter does not
  /// occur, a non-empty text comes out twice.
  static std::vector<std::string> SplitAllByString(const std::string& s,
                                                   const std::string& delimiter);

  /// The text before the first delimiter and all after it; the whole text alone if there is none.
  static std::vector<std::string> SplitFristByString(const std::string& s,
                                                     const std::string& delimiter);

  /// Removes white space, as the runtime's isspace() classifies it, from both ends of `s`.
  static void Trim(std::string& s);

  /// `s` with each byte mapped by the runtime's toupper(). Bytes above 0x7F are mapped only as the
  /// runtime's locale allows; the byte 0xFF is handed over as the runtime's EOF.
  static std::string ToUpper(const std::string& s);
  /// `s` with each byte mapped by the runtime's tolower(), as ToUpper() maps by toupper().
  static std::string ToLower(const std::string& s);

  /// Whether `s` begins with `prefix`. Every text begins with the empty one.
  static bool StartsWith(const std::string& s, const std::string& prefix);
  /// Whether `s` ends with `suffix`. Every text ends with the empty one.
  static bool EndsWith(const std::string& s, const std::string& suffix);
  /// Whether `part` occurs in `s`. The empty text occurs in every one.
  static bool Contains(const std::string& s, const std::string& part);

  /// `s` with every byte that occurs in `characters` replaced by `replacement`. Neither the space
  /// nor the underscore is built in.
  static std::string SpaceToUnderscore(std::string s, const std::string& characters,
                                       const char& replacement);

  /// The SHA-256 digest of `length` bytes at `data` as 64 characters: lower-case hexadecimal, with
  /// a space, not a zero, before the digit of a byte below 0x10: callers compare these texts.
  /// SpaceToUnderscore(text, " ", '0') gives the usual form.
  ///
  /// An empty text if the digest cannot be computed, or if `data` is null and `length` is not 0.
  /// Null with length 0 is the empty input.
  static std::string GetHashText(const void* data, const size_t& length);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_STRING_UTILS_H_
