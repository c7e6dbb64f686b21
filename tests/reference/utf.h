// Reference checks and conversions of UTF-8, simple but slow. The conversions use the table of
// well-formed sequences.

#ifndef TARSIO_COMMON_TESTS_REFERENCE_UTF_H_
#define TARSIO_COMMON_TESTS_REFERENCE_UTF_H_

#include <cstddef>
#include <string>

namespace reference {

// A row of table 3-7 in the Unicode standard: the lead bytes, the range of the second byte, and the
// number of continuation bytes.
struct WellFormed {
  unsigned char firstLead, lastLead, firstSecond, lastSecond;
  size_t continuations;
};

inline constexpr WellFormed kWellFormed[] = {
    {0x00, 0x7F, 0x00, 0x00, 0}, {0xC2, 0xDF, 0x80, 0xBF, 1}, {0xE0, 0xE0, 0xA0, 0xBF, 2},
    {0xE1, 0xEC, 0x80, 0xBF, 2}, {0xED, 0xED, 0x80, 0x9F, 2}, {0xEE, 0xEF, 0x80, 0xBF, 2},
    {0xF0, 0xF0, 0x90, 0xBF, 3}, {0xF1, 0xF3, 0x80, 0xBF, 3}, {0xF4, 0xF4, 0x80, 0x8F, 3}};

inline unsigned char ByteAt(const std::string& s, size_t index) {
  return static_cast<unsigned char>(s[index]);
}

inline bool Within(unsigned char byte, unsigned char first, unsigned char last) {
  return byte >= first && byte <= last;
}

// Returns null for a byte that is not a lead byte.
inline const WellFormed* RowFor(unsigned char lead) {
  for (const WellFormed& row : kWellFormed) {
    if (Within(lead, row.firstLead, row.lastLead)) return &row;
  }
  return nullptr;
}

// Returns the length in bytes of the character at `index`, or 0 if it is ill-formed.
inline size_t CharacterLength(const std::string& s, size_t index) {
  const WellFormed* const row = RowFor(ByteAt(s, index));
  if (row == nullptr || index + row->continuations >= s.size()) return 0;
  for (size_t i = 1; i <= row->continuations; ++i) {
    const unsigned char first = i == 1 ? row->firstSecond : 0x80;
    const unsigned char last = i == 1 ? row->lastSecond : 0xBF;
    if (!Within(ByteAt(s, index + i), first, last)) return 0;
  }
  return row->continuations + 1;
}

inline char32_t CharacterAt(const std::string& s, size_t index, size_t length) {
  char32_t character = ByteAt(s, index);
  if (length > 1) character &= 0xFFU >> (length + 1);
  for (size_t i = 1; i < length; ++i) character = character * 64 + ByteAt(s, index + i) % 64;
  return character;
}

// What IsU8() documents: every lead byte needs its continuation bytes, and none may stand alone. Of
// the sequences that encode no character, only ED A0 to ED BF are rejected. Uses the number of
// leading one bits.
inline bool IsU8(const std::string& s) {
  size_t wanted = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    const unsigned char byte = ByteAt(s, i);
    size_t ones = 0;
    while (ones < 8 && (byte >> (7 - ones) & 1) == 1) ++ones;
    if ((ones == 1) != (wanted > 0) || ones > 4) return false;
    if (ones == 1) --wanted;
    if (ones > 1) wanted = ones - 1;
    if (byte == 0xED && i + 1 < s.size() && ByteAt(s, i + 1) >= 0xA0) return false;
  }
  return !s.empty() && wanted == 0;
}

// Returns the number of bytes that become one U+FFFD: up to the first byte that is not allowed,
// including that byte if it is a continuation byte.
inline size_t BadPartLength(const std::string& s, size_t index) {
  const WellFormed* const row = RowFor(ByteAt(s, index));
  if (row == nullptr) return 1;
  size_t length = 1;
  while (index + length < s.size() && Within(ByteAt(s, index + length), 0x80, 0xBF)) {
    ++length;
    if (length == 2 && !Within(ByteAt(s, index + 1), row->firstSecond, row->lastSecond)) break;
  }
  return length;
}

// Converts UTF-8 to UTF-16, one unit per wide character.
inline std::wstring Widen(const std::string& s) {
  std::wstring wide;
  for (size_t index = 0; index < s.size();) {
    const size_t length = CharacterLength(s, index);
    const char32_t character = length == 0 ? 0xFFFD : CharacterAt(s, index, length);
    if (character > 0xFFFF) {
      wide += static_cast<wchar_t>(0xD800 + (character - 0x10000) / 0x400);
      wide += static_cast<wchar_t>(0xDC00 + (character - 0x10000) % 0x400);
    } else {
      wide += static_cast<wchar_t>(character);
    }
    index += length == 0 ? BadPartLength(s, index) : length;
  }
  return wide;
}

inline std::string EncodeUtf8(char32_t character) {
  const auto byte = [](char32_t value) { return static_cast<char>(value); };
  const auto tail = [&](char32_t value) { return byte(0x80 + value % 64); };
  if (character < 0x80) return {byte(character)};
  if (character < 0x800) return {byte(0xC0 + character / 64), tail(character)};
  if (character < 0x10000) {
    return {byte(0xE0 + character / 4096), tail(character / 64), tail(character)};
  }
  return {byte(0xF0 + character / 262144), tail(character / 4096), tail(character / 64),
          tail(character)};
}

// Converts UTF-16 to UTF-8. A value above 0xFFFF is encoded as that code point.
inline std::string Narrow(const std::wstring& wide) {
  std::string s;
  for (size_t i = 0; i < wide.size(); ++i) {
    auto character = static_cast<char32_t>(wide[i]);
    const auto next = i + 1 < wide.size() ? static_cast<char32_t>(wide[i + 1]) : 0;
    if (character / 0x400 == 0x36 && next / 0x400 == 0x37) {
      character = 0x10000 + character % 0x400 * 0x400 + next % 0x400;
      ++i;
    } else if (character / 0x800 == 0x1B || character > 0x10FFFF) {
      character = 0xFFFD;
    }
    s += EncodeUtf8(character);
  }
  return s;
}

}  // namespace reference

#endif  // TARSIO_COMMON_TESTS_REFERENCE_UTF_H_
