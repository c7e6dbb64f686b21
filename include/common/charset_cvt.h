#ifndef TARSIO_COMMON_CHARSET_CVT_H_
#define TARSIO_COMMON_CHARSET_CVT_H_

/// \file
/// Checks and conversions of byte strings, and environment variables as UTF-8.

#include <string>
#include <utility>

#include "common/export.h"

namespace tarsio {

/// A standard conversion facet with a public destructor, so that others than a locale can own it,
/// a `std::wstring_convert` for instance.
template <typename Facet>
class deletable_facet : public Facet {
 public:
  /// Hands `args` on to the facet.
  template <typename... Args>
  explicit deletable_facet(Args&&... args) : Facet(std::forward<Args>(args)...) {}
  ~deletable_facet() override = default;
};

/// Functions on encodings. Mind that only MbToU8() and U8ToMb() know the user's encoding, and that
/// the functions named for UTF-16 and UTF-32 widen and cut single bytes:
///
///     U8ToW("\xC3\xA9")     => 00C3 00A9     WToU8(L"\x00E9")   => E9     (above FF: throws)
///     U8ToU16("\xC3\xA9")   => FFC3 FFA9     U16ToU8(u"\x00E9") => E9
///     U8ToU32("\xA9")       => FFFFFFA9      U32ToU8(U"\U0001F600") => 00
///
/// Where a function says "reported", it logs at LOG_LEVEL_INFO, which the log drops by default.
///
/// For real UTF-8 and UTF-16, Path converts: `Path(utf8).Wstr()` for names of files; for other
/// strings, call the system's functions or another library's.
///
/// Threads: every function may be called from any thread at once, with two exceptions. MbToU8() and
///          U8ToMb() replace the process's global locale, for good, by the user's default locale.
///          On Linux, GetEnv() must not run while the host changes the environment (setenv()).
/// Throws:  memory exhaustion, and what stands at the functions.
class TARSIO_COMMON_API CharsetCvt {
 public:
  /// Whether no byte exceeds 0x7F. True for an empty text.
  static bool IsASCII(const std::string& s);

  /// Whether every lead byte has its continuation bytes and none stands alone. This is generous:
  /// overlong forms and values above U+10FFFF pass, up to lead byte F7 (F8 and more are refused);
  /// of all that is no character, only ED A0 to ED BF (surrogates) is refused. False for an empty
  /// string.
  static bool IsU8(const std::string& s);

  /// Whether `s` passes IsU8(), as a whole, and begins with EF BB BF.
  static bool StartsWithBom(const std::string& s);

  /// From the user's encoding to UTF-8. A text that passes IsU8() is returned as it is, and the
  /// global locale is left alone.
  ///
  /// Any other, the empty one too, is decoded by the user's default locale, and each character
  /// becomes the byte of its value. A string that cannot be decoded is reported ("Convert error: 1"
  /// if it ends too early, 2 if it is invalid); the result then has as many bytes as `s`, zeros
  /// after what was decoded.
  ///
  /// Throws: `std::range_error` ("bad conversion") for a character above U+00FF;
  /// `std::runtime_error` ("bad locale name") if the user's locale does not exist.
  static std::string MbToU8(const std::string& s);

  /// From UTF-8 to the user's encoding: each byte of `s` is taken for the character of its value,
  /// and that is encoded by the user's default locale. (So in a UTF-8 locale, each byte above 0x7F
  /// comes out as two.) A string that does not pass IsU8() is reported and gives an empty one; the
  /// global locale is then left alone.
  ///
  /// A character that cannot be encoded is reported ("Convert error: 2"); the result then has the
  /// size of `s` times the most bytes that a character has in the user's encoding, zeros after what
  /// was encoded.
  ///
  /// Throws: `std::runtime_error` ("bad locale name") if the user's locale does not exist.
  static std::string U8ToMb(const std::string& s);

  /// Each unit as the byte of its value. An empty text is reported and gives an empty text, here
  /// and in the five that follow.
  ///
  /// Throws: `std::range_error` ("bad conversion") for a unit above 0xFF.
  static std::string WToU8(const std::wstring& s);
  /// Each byte as the unit of its value.
  static std::wstring U8ToW(const std::string& s);

  /// Each unit as the byte of its low 8 bits.
  static std::string U16ToU8(const std::u16string& s);
  /// Each byte as the unit of its value, sign-extended: 80 to FF become FF80 to FFFF.
  static std::u16string U8ToU16(const std::string& s);
  /// Each unit as the byte of its low 8 bits.
  static std::string U32ToU8(const std::u32string& s);
  /// Each byte as the unit of its value, sign-extended: 80 to FF become FFFFFF80 to FFFFFFFF.
  static std::u32string U8ToU32(const std::string& s);

  /// An environment variable as UTF-8, read anew at each call; what is no character in it becomes
  /// U+FFFD. Empty if there is none, or if its value has 256 UTF-16 units or more, or more than 254
  /// bytes in UTF-8. `defaultValue` is accepted and never used. `name` ends at its
  /// first zero.
  static std::string GetEnv(const std::wstring& name, const std::string& defaultValue);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_CHARSET_CVT_H_
