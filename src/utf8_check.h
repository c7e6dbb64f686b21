#ifndef TARSIO_COMMON_SRC_UTF8_CHECK_H_
#define TARSIO_COMMON_SRC_UTF8_CHECK_H_

#include <cstddef>

namespace tarsio {

// The instructions that a check uses for long strings: the best that the processor and the system
// support, or those that every x86-64 processor has. Tests pass both; the result is the same.
enum class Simd { kBest, kSse2 };

// Whether all bytes are below 0x80.
bool IsAscii(const unsigned char* bytes, size_t size, Simd simd = Simd::kBest);

// Whether every lead byte is followed by its continuation bytes, and nothing else is. Rejects bytes
// from F8 up and encoded surrogates; accepts overlong forms and values above U+10FFFF.
bool IsUtf8(const unsigned char* bytes, size_t size, Simd simd = Simd::kBest);

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_UTF8_CHECK_H_
