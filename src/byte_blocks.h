#ifndef TARSIO_COMMON_SRC_BYTE_BLOCKS_H_
#define TARSIO_COMMON_SRC_BYTE_BLOCKS_H_

#include <cstddef>

// The checks of long strings, once per instruction set: a block of bytes at a time, without
// branches within a block. All functions require that at least one block ends at `bytes + size`.

namespace tarsio {

constexpr size_t kUtf8Lookback =
    3;  // the validity of a byte depends on up to three bytes before it

namespace sse2 {

constexpr size_t kBlockSize = 16;

bool IsAscii(const unsigned char* bytes, size_t size);

// Whether each of the bytes may follow the ones before it. Reads before `bytes`: `kUtf8Lookback`
// bytes, and as much as the last block needs.
bool IsUtf8Continued(const unsigned char* bytes, size_t size);

// The same for the first block of a string, with nothing before it.
bool IsUtf8Start(const unsigned char* bytes);

}  // namespace sse2

namespace avx2 {

constexpr size_t kBlockSize = 32;

bool IsAscii(const unsigned char* bytes, size_t size);
bool IsUtf8Continued(const unsigned char* bytes, size_t size);

}  // namespace avx2

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_BYTE_BLOCKS_H_
