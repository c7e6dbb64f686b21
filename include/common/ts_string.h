#ifndef TARSIO_COMMON_TS_STRING_H_
#define TARSIO_COMMON_TS_STRING_H_

/// \file
/// Plain strings for a binary interface that carries no standard-library strings.

#include <cstddef>
#include <cstdint>

#include "common/export.h"

namespace tarsio {

/// A zero-terminated byte string that owns its buffer. The buffer grows and never shrinks; an empty
/// string needs none. Copies are deep; there are no move operations, so moving copies.
///
///     TsString name(text.c_str());      // from a std::string, up to its first NUL
///     std::string text = name.Cstr();   // and back
///
/// Threads: one object must not be used from two threads at once; distinct objects may.
/// Throws:  `std::bad_alloc` where a text is stored; the string is then empty and usable.
class TARSIO_COMMON_API TsString {
 public:
  /// The empty string.
  TsString();
  /// Copies `text` up to its terminator, but at most its first 16777214 (0xFFFFFE) bytes. Null is
  /// the empty text.
  TsString(const char* text);  // NOLINT(google-explicit-constructor): a text is a string to callers
  /// Copies without that limit.
  TsString(const TsString& other);
  virtual ~TsString();

  /// Copies without a limit. Assigning a string to itself leaves it as it is.
  TsString& operator=(const TsString& other);
  /// As the constructor from a text. `text` may lie in this string's own buffer.
  TsString& operator=(const char* text);

  /// The text, never null. Valid until the string is changed or destroyed.
  const char* Cstr() const;
  /// The number of bytes before the terminator, counted at every call.
  size_t Length() const;
  /// Whether Length() is 0.
  bool IsEmpty() const;

  /// Compares the texts byte for byte, whatever the sizes of their buffers.
  bool operator==(const TsString& other) const;
  /// Whether the texts differ.
  bool operator!=(const TsString& other) const;

 private:
  // The empty string. Releases nothing.
  void Init() {
    data = &inlineBuffer;
    inlineBuffer = '\0';
    capacity = 1;
  }
  void Release();
  void PutData(const char* source, size_t count);

  char* data;         // the inline buffer, or one on the heap of exactly `capacity` bytes
  char inlineBuffer;  // the terminator of the empty string
  uint64_t capacity;  // bytes at data, the terminator included
};

/// Two strings, copied and assigned in the order of their names. Moving copies: the source keeps
/// its strings.
///
/// Threads: as TsString.
/// Throws:  as TsString; an assignment whose second string fails has assigned the first.
struct TARSIO_COMMON_API TsStringPair {
  /// Two empty strings.
  TsStringPair();
  /// Copies the first, then the second.
  TsStringPair(const TsStringPair& other);
  /// Copies: `other` keeps its strings.
  // NOLINTNEXTLINE(performance-noexcept-move-constructor): copies, so it may throw
  TsStringPair(TsStringPair&& other);
  /// Copies the first, then the second.
  TsStringPair& operator=(const TsStringPair& other);
  /// Copies: `other` keeps its strings.
  // NOLINTNEXTLINE(performance-noexcept-move-constructor): copies, so it may throw
  TsStringPair& operator=(TsStringPair&& other);
  ~TsStringPair();

  TsString first;   ///< The one, a name for instance.
  TsString second;  ///< The other, its value.
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_TS_STRING_H_
