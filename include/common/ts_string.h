#ifndef TARSIO_COMMON_TS_STRING_H_
#define TARSIO_COMMON_TS_STRING_H_

/// \file
/// Plain strings for a binary interface that cannot use standard-library strings.

#include <cstddef>
#include <cstdint>

#include "common/export.h"

namespace tarsio {

/// A NUL-terminated byte string that owns its buffer. The buffer grows and never shrinks; an empty
/// string needs no heap buffer. Copies are deep. There are no move operations: a move copies.
///
///     TsString name(text.c_str());      // from a std::string, up to its first NUL
///     std::string text = name.Cstr();   // and back
///
/// Guarantees: if storing a string fails, this string is empty and usable.
///
/// Threads: distinct objects may be used from any threads. Const members of one object may be
/// called concurrently.
///
/// Throws: `std::bad_alloc` from every function that stores a string.
class TARSIO_COMMON_API TsString {
 public:
  /// The empty string.
  TsString();
  /// Copies `text` up to its terminator, but at most its first 16777214 (0xFFFFFE) bytes. A null
  /// pointer gives the empty string.
  TsString(const char* text);  // NOLINT(google-explicit-constructor): a text is a string to callers
  /// Copies `other`, without that limit.
  TsString(const TsString& other);
  virtual ~TsString();

  /// Copies `other`, without that limit. Self-assignment has no effect.
  TsString& operator=(const TsString& other);
  /// Copies `text` as the constructor does. `text` may point into this string's own buffer.
  TsString& operator=(const char* text);

  /// The contents, NUL-terminated and never null. Valid until the string is changed or destroyed.
  const char* Cstr() const;
  /// The number of bytes before the terminator. It is counted at every call.
  size_t Length() const;
  /// Whether Length() is 0.
  bool IsEmpty() const;

  /// Whether both strings have the same bytes.
  bool operator==(const TsString& other) const;
  /// Whether the strings differ.
  bool operator!=(const TsString& other) const;

 private:
  // Sets the empty string. Releases nothing.
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

/// Two strings, copied and assigned in the order of declaration. A move copies: the source keeps
/// its strings.
///
/// Guarantees: if assigning the second string fails, the first has been assigned.
///
/// Threads: as for TsString.
///
/// Throws: as for TsString.
struct TARSIO_COMMON_API TsStringPair {
  /// Two empty strings.
  TsStringPair();
  /// Copies the first string, then the second.
  TsStringPair(const TsStringPair& other);
  /// Copies; `other` keeps its strings.
  // NOLINTNEXTLINE(performance-noexcept-move-constructor): copies, so it may throw
  TsStringPair(TsStringPair&& other);
  /// Copies the first string, then the second.
  TsStringPair& operator=(const TsStringPair& other);
  /// Copies; `other` keeps its strings.
  // NOLINTNEXTLINE(performance-noexcept-move-constructor): copies, so it may throw
  TsStringPair& operator=(TsStringPair&& other);
  ~TsStringPair();

  TsString first;   ///< For example a name.
  TsString second;  ///< For example its value.
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_TS_STRING_H_
