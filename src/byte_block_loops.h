#ifndef TARSIO_COMMON_SRC_BYTE_BLOCK_LOOPS_H_
#define TARSIO_COMMON_SRC_BYTE_BLOCK_LOOPS_H_

#include <cstddef>
#include <cstring>

// The checks of long strings for an instruction set: a block of bytes at a time, without branches
// within a block. Simd::Bytes is a vector type of GCC and Clang, whose operators apply to each
// byte.
//
// Simd must be in an unnamed namespace, so that each source has its own copy: the linker must not
// pick one for all, since the sources are compiled for different processors.

namespace tarsio {

// The validity of a byte depends on up to three bytes before it.
constexpr size_t kUtf8Lookback = 3;

template <typename Simd>
struct Loops {
  using Bytes = typename Simd::Bytes;
  static constexpr size_t kBlock = sizeof(Bytes);
  static constexpr size_t kBlocksPerChunk = 4;  // one branch per chunk keeps up with the loads
  static constexpr size_t kChunk = kBlocksPerChunk * kBlock;

  static Bytes Load(const unsigned char* from) {
    Bytes bytes;
    std::memcpy(&bytes, from, kBlock);
    return bytes;
  }

  static Bytes LoadAnyOfChunk(const unsigned char* from) {
    return (Load(from) | Load(from + kBlock)) | (Load(from + 2 * kBlock) | Load(from + 3 * kBlock));
  }

  // Sets the high bit of each byte that is `limit` or above, and some lower bits.
  static Bytes AtLeast(Bytes bytes, unsigned char limit) {
    return Simd::SubtractSaturated(bytes, static_cast<unsigned char>(limit - 0x80));
  }

  // Sets the high bit of each byte of `now` that may not follow the one, two and three bytes
  // before.
  static Bytes Errors(Bytes now, Bytes before1, Bytes before2, Bytes before3) {
    const Bytes required = AtLeast(before1, 0xC0) | AtLeast(before2, 0xE0) | AtLeast(before3, 0xF0);
    const Bytes continuation = now & ~AtLeast(now, 0xC0);
    const Bytes surrogate = Bytes(before1 == 0xED) & AtLeast(now, 0xA0);
    return (required ^ continuation) | surrogate | AtLeast(now, 0xF8);
  }

  static Bytes ErrorsAt(const unsigned char* bytes) {
    return Errors(Load(bytes), Load(bytes - 1), Load(bytes - 2), Load(bytes - 3));
  }

  // Requires that at least one block ends at `bytes + size`.
  static bool IsAscii(const unsigned char* bytes, size_t size) {
    const unsigned char* const end = bytes + size;
    for (; size >= kChunk; bytes += kChunk, size -= kChunk) {
      if (Simd::AnyHighBit(LoadAnyOfChunk(bytes))) return false;
    }
    for (; size >= kBlock; bytes += kBlock, size -= kBlock) {
      if (Simd::AnyHighBit(Load(bytes))) return false;
    }
    return size == 0 || !Simd::AnyHighBit(Load(end - kBlock));
  }

  // Whether each of the bytes may follow the ones before it. Reads before `bytes`: the lookback,
  // and as much as the last block needs. Skips a chunk of ASCII if the chunk before it is ASCII,
  // too.
  static bool IsUtf8Continued(const unsigned char* bytes, size_t size) {
    const unsigned char* const end = bytes + size;
    Bytes previous = ~Bytes{};
    for (; size >= kChunk; bytes += kChunk, size -= kChunk) {
      const Bytes chunk = LoadAnyOfChunk(bytes);
      if (Simd::AnyHighBit(chunk | previous) && !IsUtf8Chunk(bytes)) return false;
      previous = chunk;
    }
    for (; size >= kBlock; bytes += kBlock, size -= kBlock) {
      if (Simd::AnyHighBit(ErrorsAt(bytes))) return false;
    }
    return size == 0 || !Simd::AnyHighBit(ErrorsAt(end - kBlock));
  }

  static bool IsUtf8Chunk(const unsigned char* bytes) {
    Bytes errors{};
#pragma GCC unroll 1  // unrolled, it needs more registers than there are
    for (size_t i = 0; i < kBlocksPerChunk; ++i) errors |= ErrorsAt(bytes + i * kBlock);
    return !Simd::AnyHighBit(errors);
  }
};

// For processors with AVX2.
namespace avx2 {
bool IsAscii(const unsigned char* bytes, size_t size);
bool IsUtf8Continued(const unsigned char* bytes, size_t size);
}  // namespace avx2

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_BYTE_BLOCK_LOOPS_H_
