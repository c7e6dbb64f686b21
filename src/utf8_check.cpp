#include "utf8_check.h"

#include <emmintrin.h>

#include "byte_block_loops.h"

namespace tarsio {

namespace {

struct Sse2 {
  using Bytes = unsigned char __attribute__((vector_size(16)));

  static bool AnyHighBit(Bytes bytes) {
    return _mm_movemask_epi8(reinterpret_cast<__m128i>(bytes)) != 0;
  }

  static Bytes SubtractSaturated(Bytes bytes, unsigned char subtrahend) {
    const __m128i subtrahends = _mm_set1_epi8(static_cast<char>(subtrahend));
    return reinterpret_cast<Bytes>(_mm_subs_epu8(reinterpret_cast<__m128i>(bytes), subtrahends));
  }

  // The bytes moved up by `Count`, with zeros before them.
  template <int Count>
  static Bytes MoveUp(Bytes bytes) {
    return reinterpret_cast<Bytes>(_mm_slli_si128(reinterpret_cast<__m128i>(bytes), Count));
  }
};

using Blocks = Loops<Sse2>;

bool UseAvx2(size_t size, Simd simd) {
  constexpr size_t kMinSize = 128;  // shorter strings gain nothing
  return size >= kMinSize && simd == Simd::kBest &&
         static_cast<bool>(__builtin_cpu_supports("avx2"));
}

// The rules, one byte after another. The blocks give the same result.
bool IsShortUtf8(const unsigned char* bytes, size_t size) {
  int missing = 0;  // continuation bytes that must follow
  unsigned char previous = 0;
  for (size_t i = 0; i < size; ++i) {
    const unsigned char byte = bytes[i];
    const bool continuation = (byte & 0xC0) == 0x80;
    if (byte >= 0xF8 || continuation != (missing > 0)) return false;
    if (previous == 0xED && byte >= 0xA0) return false;  // a surrogate
    if (continuation) {
      --missing;
    } else {
      missing = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
    }
    previous = byte;
  }
  return missing == 0;
}

// Whether the string's first block is valid, with nothing before it.
bool IsUtf8Start(const unsigned char* bytes) {
  const Sse2::Bytes first = Blocks::Load(bytes);
  return !Sse2::AnyHighBit(Blocks::Errors(first, Sse2::MoveUp<1>(first), Sse2::MoveUp<2>(first),
                                          Sse2::MoveUp<3>(first)));
}

// Whether a sequence goes on after the last byte.
bool IsCutOff(const unsigned char* end) {
  return end[-1] >= 0xC0 || end[-2] >= 0xE0 || end[-3] >= 0xF0;
}

bool IsShortAscii(const unsigned char* bytes, size_t size) {
  unsigned char any = 0;
  for (size_t i = 0; i < size; ++i) any |= bytes[i];
  return any < 0x80;
}

}  // namespace

bool IsAscii(const unsigned char* bytes, size_t size, Simd simd) {
  if (size < Blocks::kBlock) return IsShortAscii(bytes, size);
  return UseAvx2(size, simd) ? avx2::IsAscii(bytes, size) : Blocks::IsAscii(bytes, size);
}

bool IsUtf8(const unsigned char* bytes, size_t size, Simd simd) {
  constexpr size_t kStart = Blocks::kBlock;
  // Most short strings are ASCII. In long ones, the blocks look for it.
  if (size <= Blocks::kChunk && IsAscii(bytes, size, simd)) return true;
  if (size < kStart + kUtf8Lookback) return IsShortUtf8(bytes, size);
  if (IsCutOff(bytes + size) || !IsUtf8Start(bytes)) return false;
  return UseAvx2(size, simd) ? avx2::IsUtf8Continued(bytes + kStart, size - kStart)
                             : Blocks::IsUtf8Continued(bytes + kStart, size - kStart);
}

}  // namespace tarsio
