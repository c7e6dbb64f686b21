#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/platform.h"

namespace tarsio::platform {

namespace {

constexpr uint32_t kReplacement = 0xFFFD;

// Returns how many continuation bytes follow this lead byte; 0 if it is not a lead byte.
size_t ContinuationCount(unsigned char lead) {
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return 1;
  if (lead < 0xF0) return 2;
  return lead < 0xF5 ? 3 : 0;
}

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// Returns true if `second` would give an overlong form, a surrogate or a value above U+10FFFF.
bool IsImpossibleSecond(unsigned char lead, unsigned char second) {
  return (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) ||
         (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90);
}

// Decodes one character, or one ill-formed sequence, from the front of [next, end) and advances
// `next`.
uint32_t DecodeOne(const unsigned char*& next, const unsigned char* end) {
  const unsigned char lead = *next++;
  if (lead < 0x80) return lead;
  const size_t count = ContinuationCount(lead);
  if (count == 0) return kReplacement;
  uint32_t character = lead & (0x3FU >> count);
  for (size_t i = 0; i < count; ++i) {
    if (next == end || !IsContinuation(*next)) return kReplacement;
    const unsigned char byte = *next++;
    if (i == 0 && IsImpossibleSecond(lead, byte)) return kReplacement;
    character = character << 6 | (byte & 0x3FU);
  }
  return character;
}

void AppendUtf16(std::wstring& text, uint32_t character) {
  if (character < 0x10000) {
    text += static_cast<wchar_t>(character);
    return;
  }
  text += static_cast<wchar_t>(0xD7C0 + (character >> 10));
  text += static_cast<wchar_t>(0xDC00 + (character & 0x3FF));
}

void AppendUtf8(std::string& text, uint32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
    return;
  }
  constexpr uint32_t kLeadMarks[] = {0x00, 0xC0, 0xE0, 0xF0};
  const int continuations = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  text += static_cast<char>(kLeadMarks[continuations] | character >> 6 * continuations);
  for (int left = continuations - 1; left >= 0; --left) {
    text += static_cast<char>(0x80U | (character >> 6 * left & 0x3F));
  }
}

bool IsAscii(wchar_t unit) { return unit >= 0 && unit < 0x80; }

uint32_t UnitAt(const std::wstring& text, size_t index) {
  return static_cast<std::make_unsigned_t<wchar_t>>(text[index]);
}

bool IsHighSurrogate(uint32_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLowSurrogate(uint32_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

}  // namespace

std::wstring Widen(const std::string& utf8) {
  if (utf8.size() >= INT_MAX) return {};
  const auto* const begin = reinterpret_cast<const unsigned char*>(utf8.data());
  const unsigned char* const end = begin + utf8.size();
  const unsigned char* next = std::find_if(begin, end, [](unsigned char c) { return c >= 0x80; });
  std::wstring text(begin, next);  // most strings are entirely ASCII
  while (next != end) AppendUtf16(text, DecodeOne(next, end));
  return text;
}

std::string Narrow(const std::wstring& utf16) {
  if (utf16.size() >= INT_MAX) return {};
  const auto ascii = std::find_if_not(utf16.begin(), utf16.end(), IsAscii);
  std::string text(utf16.begin(), ascii);  // most strings are entirely ASCII
  for (size_t i = text.size(); i < utf16.size(); ++i) {
    uint32_t character = UnitAt(utf16, i);
    if (IsHighSurrogate(character) && i + 1 < utf16.size() &&
        IsLowSurrogate(UnitAt(utf16, i + 1))) {
      ++i;
      character = ((character - 0xD7C0) << 10) + (UnitAt(utf16, i) - 0xDC00);
    } else if (IsHighSurrogate(character) || IsLowSurrogate(character) || character > 0x10FFFF) {
      character = kReplacement;
    }
    AppendUtf8(text, character);
  }
  return text;
}

}  // namespace tarsio::platform
