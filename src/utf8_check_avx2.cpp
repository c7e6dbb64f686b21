#include <immintrin.h>

#include "byte_block_loops.h"

namespace tarsio {

namespace {

struct Avx2 {
  using Bytes = unsigned char __attribute__((vector_size(32)));

  static bool AnyHighBit(Bytes bytes) {
    return _mm256_movemask_epi8(reinterpret_cast<__m256i>(bytes)) != 0;
  }

  static Bytes SubtractSaturated(Bytes bytes, unsigned char subtrahend) {
    const __m256i subtrahends = _mm256_set1_epi8(static_cast<char>(subtrahend));
    return reinterpret_cast<Bytes>(_mm256_subs_epu8(reinterpret_cast<__m256i>(bytes), subtrahends));
  }
};

}  // namespace

bool avx2::IsAscii(const unsigned char* bytes, size_t size) {
  return Loops<Avx2>::IsAscii(bytes, size);
}

bool avx2::IsUtf8Continued(const unsigned char* bytes, size_t size) {
  return Loops<Avx2>::IsUtf8Continued(bytes, size);
}

}  // namespace tarsio
