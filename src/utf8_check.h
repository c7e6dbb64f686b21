#ifndef TARSIO_COMMON_SRC_UTF8_CHECK_H_
#define TARSIO_COMMON_SRC_UTF8_CHECK_H_

#include <cstddef>

namespace tarsio {

// Whether all bytes are below 0x80.
bool IsAscii(const unsigned char* bytes, size_t size);

// Whether every lead byte is followed by its continuation bytes, and nothing else is. Rejects bytes
// from F8 up and encoded surrogates; accepts overlong forms and values above U+10FFFF. As a loop:
//
//     int missing = 0;  // continuation bytes that must follow
//     unsigned char previous = 0;
//     for (unsigned char byte : bytes) {
//       const bool continuation = (byte & 0xC0) == 0x80;
//       if (byte >= 0xF8 || continuation != (missing > 0)) return false;
//       if (previous == 0xED && byte >= 0xA0) return false;  // a surrogate
//       if (continuation) --missing;
//       else missing = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
//       previous = byte;
//     }
//     return missing == 0;
bool IsUtf8(const unsigned char* bytes, size_t size);

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_UTF8_CHECK_H_
