#ifndef TARSIO_COMMON_STRING_UTILS_H_
#define TARSIO_COMMON_STRING_UTILS_H_

/// \file
/// Functions on byte strings: splitting, trimming, case, tests, replacement, and SHA-256 in
/// hexadecimal.

#include <cstddef>
#include <string>
#include <vector>

#include "common/export.h"

namespace tarsio {

/// Functions on byte strings. Strings may contain any bytes, including NUL.
///
/// The three splitting functions match the delimiter as a whole, from left to right, without
/// overlaps. They differ in the rest:
///
///     s, delimiter      SplitString   SplitAllByString   SplitFristByString
///     "a,b"      ","    a b           a b                a b
///     "a,,b"     ","    a "" b        a "" b             a ",b"
///     "a,b,"     ","    a b ""        a b                a "b,"
///     ",a"       ","    "" a          "" a               "" a
///     "abc"      ","    abc           abc abc            abc
///     ""         ","    (nothing)     ""                 ""
///     "a-"       "--"   a             a- a-              a-
///     "ab"       ""     ab            ab                 "" ab
///
/// Threads: every function may be called from any thread. Trim(), ToUpper() and ToLower() use the C
/// runtime's current locale, which other code may change.
///
/// Throws: `std::bad_alloc` only.
class TARSIO_COMMON_API StringUtils {
 public:
  /// Returns the pieces between delimiters, including empty ones. The search runs over `s` followed
  /// by one more delimiter, which may complete a partial delimiter at the end of `s`: "a-" by "--"
  /// gives "a", but "a\r" by "\r\n" gives "a\r".
  static std::vector<std::string> SplitString(const std::string& s, const std::string& delimiter);

  /// Returns the pieces between delimiters, without an empty last piece. If a non-empty `s` does
  /// not contain the delimiter, `s` is returned twice (by design).
  static std::vector<std::string> SplitAllByString(const std::string& s,
                                                   const std::string& delimiter);

  /// Returns the part before the first delimiter and the part after it, or `s` alone if it does not
  /// contain the delimiter.
  static std::vector<std::string> SplitFristByString(const std::string& s,
                                                     const std::string& delimiter);

  /// Removes white space, as classified by the runtime's isspace(), from both ends of `s`.
  static void Trim(std::string& s);

  /// Returns `s` with each byte mapped by the runtime's toupper(). Which bytes above 0x7F change
  /// depends on the runtime's locale. The byte 0xFF is passed to the runtime as EOF.
  static std::string ToUpper(const std::string& s);
  /// Returns `s` with each byte mapped by the runtime's tolower(), with the same rules as
  /// ToUpper().
  static std::string ToLower(const std::string& s);

  /// Whether `s` begins with `prefix`. True for an empty `prefix`.
  static bool StartsWith(const std::string& s, const std::string& prefix);
  /// Whether `s` ends with `suffix`. True for an empty `suffix`.
  static bool EndsWith(const std::string& s, const std::string& suffix);
  /// Whether `s` contains `part`. True for an empty `part`.
  static bool Contains(const std::string& s, const std::string& part);

  /// Returns `s` with every byte that occurs in `characters` replaced by `replacement`. In spite of
  /// the name, neither the space nor the underscore is built in.
  static std::string SpaceToUnderscore(std::string s, const std::string& characters,
                                       const char& replacement);

  /// Returns the SHA-256 digest of `length` bytes at `data` as 64 characters of lower-case
  /// hexadecimal, except that a byte below 0x10 is written as a space and one digit (by design:
  /// callers compare these strings). SpaceToUnderscore(digest, " ", '0') gives the usual form.
  ///
  /// Returns an empty string if the digest cannot be computed, or if `data` is null and `length` is
  /// not 0. Null with length 0 is an empty input.
  static std::string GetHashText(const void* data, const size_t& length);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_STRING_UTILS_H_
