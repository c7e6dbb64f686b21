#ifndef TARSIO_COMMON_CHARSET_CVT_H_
#define TARSIO_COMMON_CHARSET_CVT_H_

/// \file
/// Encoding checks and conversions, and environment variables as UTF-8.

#include <string>
#include <utility>

#include "common/export.h"

namespace tarsio {

/// A standard conversion facet with a public destructor, so that it can be owned by something other
/// than a locale, for example by `std::wstring_convert`.
template <typename Facet>
class deletable_facet : public Facet {
 public:
  /// Forwards `args` to the facet's constructor.
  template <typename... Args>
  explicit deletable_facet(Args&&... args) : Facet(std::forward<Args>(args)...) {}
  ~deletable_facet() override = default;
};

/// Encoding checks and conversions.
///
/// MbToU8() and U8ToMb() use the user's encoding. The other conversions are not transcoders: they
/// widen each byte to a unit or reduce each unit to a byte, whatever their names say (by design):
///
///     U8ToW("\xC3\xA9")     => 00C3 00A9     WToU8(L"\x00E9")   => E9     (above FF: throws)
///     U8ToU16("\xC3\xA9")   => FFC3 FFA9     U16ToU8(u"\x00E9") => E9
///     U8ToU32("\xA9")       => FFFFFFA9      U32ToU8(U"\U0001F600") => 00
///
/// To convert a file name between UTF-8 and UTF-16, use Path: `Path(utf8).Wstr()`. For any other
/// string, use the system's functions or another library.
///
/// "Logged" below means at LOG_LEVEL_INFO, which the log drops by default.
///
/// Threads: every function may be called from any thread, with two exceptions. MbToU8() and
/// U8ToMb() may permanently replace the process's global locale, so no other thread may use the
/// locale at the same time. On Linux, no thread may change the environment (setenv()) during
/// GetEnv().
///
/// Throws: `std::bad_alloc`, whatever the log's sink throws, and what each function documents.
class TARSIO_COMMON_API CharsetCvt {
 public:
  /// Whether no byte exceeds 0x7F. True for an empty string.
  static bool IsASCII(const std::string& s);

  /// Whether every lead byte is followed by its continuation bytes, and every continuation byte
  /// belongs to a lead byte. The check is lenient: overlong forms and values above U+10FFFF (up to
  /// lead byte F7) are accepted. Lead bytes from F8 and surrogates (ED A0 to ED BF) are rejected.
  /// False for an empty string.
  static bool IsU8(const std::string& s);

  /// Whether `s` begins with EF BB BF and the whole string passes IsU8().
  static bool StartsWithBom(const std::string& s);

  /// Converts from the user's encoding to UTF-8. A string that passes IsU8() is returned unchanged.
  ///
  /// Any other string, including the empty one, is decoded with the user's default locale, which
  /// becomes the global locale. Each decoded character is reduced to one byte with its value, so
  /// the result is Latin-1 rather than UTF-8 (by design). A decoding failure is logged as "Convert
  /// error: 1" if `s` ends inside a character, and as "Convert error: 2" if it is invalid. The
  /// result then has the size of `s`: the characters decoded so far, then zeros.
  ///
  /// Throws: `std::range_error` ("bad conversion") for a character above U+00FF;
  /// `std::runtime_error` ("bad locale name") if the user's locale does not exist.
  static std::string MbToU8(const std::string& s);

  /// Converts to the user's encoding. Each byte of `s`, not each character, is taken as a code
  /// point (by design) and encoded with the user's default locale, which becomes the global locale.
  /// In a UTF-8 locale each byte above 0x7F therefore becomes two bytes.
  ///
  /// If `s` does not pass IsU8(), this is logged, the result is empty and the global locale is not
  /// changed.
  ///
  /// A byte that cannot be encoded is logged ("Convert error: 2"). The result then has the size of
  /// `s` times the largest number of bytes per character in the user's encoding: what was encoded
  /// so far, then zeros. On Windows a similar character may be substituted instead, without a log
  /// message.
  ///
  /// Throws: `std::runtime_error` ("bad locale name") if the user's locale does not exist.
  static std::string U8ToMb(const std::string& s);

  /// Converts each unit to the byte with its value. For this and the next five functions, an empty
  /// string is logged and the result is empty.
  ///
  /// Throws: `std::range_error` ("bad conversion") for a unit above 0xFF.
  static std::string WToU8(const std::wstring& s);
  /// Converts each byte to the unit with its value.
  static std::wstring U8ToW(const std::string& s);

  /// Converts each unit to its low 8 bits.
  static std::string U16ToU8(const std::u16string& s);
  /// Converts each byte to a sign-extended unit: 80 to FF become FF80 to FFFF.
  static std::u16string U8ToU16(const std::string& s);
  /// Converts each unit to its low 8 bits.
  static std::string U32ToU8(const std::u32string& s);
  /// Converts each byte to a sign-extended unit: 80 to FF become FFFFFF80 to FFFFFFFF.
  static std::u32string U8ToU32(const std::string& s);

  /// Returns the value of an environment variable as UTF-8. It is read at each call. Invalid
  /// characters become U+FFFD. Empty if the variable is not set, or if its value is longer than 254
  /// bytes in UTF-8. `defaultValue` is never used (by design). `name` ends at its first NUL. Names
  /// are case-sensitive on Linux and case-insensitive on Windows.
  static std::string GetEnv(const std::wstring& name, const std::string& defaultValue);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_CHARSET_CVT_H_
