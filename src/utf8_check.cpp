#include "utf8_check.h"

#include <algorithm>
#include <array>

namespace tarsio {

namespace {

// The bytes are checked in blocks of a fixed size, by loops without branches that compilers
// vectorise. The first block that fails ends the check.
constexpr size_t kBlockSize = 256;
constexpr size_t kLookback = 3;  // the validity of a byte depends on up to three bytes before it

unsigned char HighestByte(const unsigned char* bytes, size_t count) {
  unsigned char highest = 0;
  for (size_t i = 0; i < count; ++i) highest = std::max(highest, bytes[i]);
  return highest;
}

// Whether `*byte` is a continuation byte exactly if one of the three bytes before it requires one,
// and does not complete a surrogate. Requires that no byte is above F7.
bool IsValidAfterLookback(const unsigned char* byte) {
  constexpr signed char kFirstOther = -0x40;  // as signed, the continuations 80 to BF are below
  const bool continues = static_cast<signed char>(byte[0]) < kFirstOther;
  // NOLINTBEGIN(readability-implicit-bool-conversion): the operators without branches
  const bool notRequired = (byte[-1] < 0xC0) & (byte[-2] < 0xE0) & (byte[-3] < 0xF0);
  const bool noSurrogate = (byte[-1] != 0xED) | (byte[0] < 0xA0);
  return (continues != notRequired) & noSurrogate;
  // NOLINTEND(readability-implicit-bool-conversion)
}

bool AreValidAfterLookback(const unsigned char* bytes, size_t count) {
  unsigned char valid = 1;  // a bool would keep the loop from being vectorised
  for (size_t i = 0; i < count; ++i) {
    valid &= static_cast<unsigned char>(IsValidAfterLookback(bytes + i));
  }
  return valid != 0;
}

// Reads `kLookback` bytes before the block as well.
bool IsUtf8Block(const unsigned char* bytes, size_t count) {
  const unsigned char highest = HighestByte(bytes - kLookback, kLookback + count);
  return highest < 0x80 || (highest < 0xF8 && AreValidAfterLookback(bytes, count));
}

}  // namespace

bool IsAscii(const unsigned char* bytes, size_t size) {
  size_t done = 0;
  for (; size - done >= kBlockSize; done += kBlockSize) {
    if (HighestByte(bytes + done, kBlockSize) > 0x7F) return false;
  }
  return HighestByte(bytes + done, size - done) <= 0x7F;
}

bool IsUtf8(const unsigned char* bytes, size_t size) {
  const size_t edge = std::min(size, kLookback);
  // Copies of the first and the last bytes, with zeros before and after them. A zero neither
  // requires a continuation byte nor is one.
  using Edge = std::array<unsigned char, 2 * kLookback>;
  Edge begin{};
  Edge end{};
  std::copy_n(bytes, edge, begin.begin() + kLookback);
  std::copy_n(bytes + size - edge, edge, end.begin() + (kLookback - edge));
  if (!IsUtf8Block(begin.data() + kLookback, kLookback)) return false;
  if (!IsUtf8Block(end.data() + kLookback, kLookback)) return false;

  size_t done = edge;
  for (; size - done >= kBlockSize; done += kBlockSize) {
    if (!IsUtf8Block(bytes + done, kBlockSize)) return false;
  }
  return done == size || IsUtf8Block(bytes + done, size - done);
}

}  // namespace tarsio
