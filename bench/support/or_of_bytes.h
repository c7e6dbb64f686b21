// The limit for everything that must read each byte of a string.

#ifndef TARSIO_COMMON_BENCH_SUPPORT_OR_OF_BYTES_H_
#define TARSIO_COMMON_BENCH_SUPPORT_OR_OF_BYTES_H_

#include <string>

namespace tarsio_bench {

// Returns the bitwise OR of all bytes. The compiler vectorises the loop for the processor.
unsigned char OrOfBytes(const std::string& text);

}  // namespace tarsio_bench

#endif  // TARSIO_COMMON_BENCH_SUPPORT_OR_OF_BYTES_H_
