#include <emmintrin.h>

#include "byte_block_loops.h"

namespace tarsio {

namespace {

struct Sse2 {
  using Bytes = unsigned char __attribute__((vector_size(sse2::kBlockSize)));

  static bool AnyHighBit(Bytes bytes) {
    return _mm_movemask_epi8(reinterpret_cast<__m128i>(bytes)) != 0;
  }

  static Bytes SubtractSaturated(Bytes bytes, unsigned char subtrahend) {
    const __m128i subtrahends = _mm_set1_epi8(static_cast<char>(subtrahend));
    return reinterpret_cast<Bytes>(_mm_subs_epu8(reinterpret_cast<__m128i>(bytes), subtrahends));
  }

  // The bytes moved up by `count`, with zeros before them.
  template <int count>
  static Bytes MoveUp(Bytes bytes) {
    return reinterpret_cast<Bytes>(_mm_slli_si128(reinterpret_cast<__m128i>(bytes), count));
  }
};

}  // namespace

bool sse2::IsAscii(const unsigned char* bytes, size_t size) {
  return Loops<Sse2>::IsAscii(bytes, size);
}

bool sse2::IsUtf8Continued(const unsigned char* bytes, size_t size) {
  return Loops<Sse2>::IsUtf8Continued(bytes, size);
}

bool sse2::IsUtf8Start(const unsigned char* bytes) {
  const Sse2::Bytes first = Loops<Sse2>::Load(bytes);
  return !Sse2::AnyHighBit(Loops<Sse2>::Errors(first, Sse2::MoveUp<1>(first),
                                               Sse2::MoveUp<2>(first), Sse2::MoveUp<3>(first)));
}

}  // namespace tarsio
