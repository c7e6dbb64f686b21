#ifndef TARSIO_COMMON_SRC_UTF8_CHECK_H_
#define TARSIO_COMMON_SRC_UTF8_CHECK_H_

#include <cstddef>

namespace tarsio {

// The instructions that a check uses for long strings. Tests pass both; the result is the same.
enum class Simd { kSse2, kAvx2 };

// The best that this processor and its system support.
Simd BestSimd();

// Whether all bytes are below 0x80.
bool IsAscii(const unsigned char* bytes, size_t size, Simd simd = BestSimd());

// Whether every lead byte is followed by its continuation bytes, and nothing else is. Rejects bytes
// from F8 up and encoded surrogates; accepts overlong forms and values above U+10FFFF.
bool IsUtf8(const unsigned char* bytes, size_t size, Simd simd = BestSimd());

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_UTF8_CHECK_H_
