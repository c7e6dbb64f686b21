#include "utf8_check.h"

#include "byte_blocks.h"

namespace tarsio {

namespace {

constexpr size_t kMinAvx2 = 64;  // shorter strings gain nothing

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

Simd BestSimd() { return __builtin_cpu_supports("avx2") ? Simd::kAvx2 : Simd::kSse2; }

bool IsAscii(const unsigned char* bytes, size_t size, Simd simd) {
  if (size < sse2::kBlockSize) return IsShortAscii(bytes, size);
  if (size < kMinAvx2 || simd == Simd::kSse2) return sse2::IsAscii(bytes, size);
  return avx2::IsAscii(bytes, size);
}

bool IsUtf8(const unsigned char* bytes, size_t size, Simd simd) {
  constexpr size_t kStart = sse2::kBlockSize;
  if (size < kStart + kUtf8Lookback) {
    return IsShortAscii(bytes, size) || IsShortUtf8(bytes, size);
  }
  if (IsCutOff(bytes + size) || !sse2::IsUtf8Start(bytes)) return false;
  if (size < kMinAvx2 || simd == Simd::kSse2) {
    return sse2::IsUtf8Continued(bytes + kStart, size - kStart);
  }
  return avx2::IsUtf8Continued(bytes + kStart, size - kStart);
}

}  // namespace tarsio
