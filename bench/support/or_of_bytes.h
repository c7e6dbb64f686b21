// The limit of all that has to look at every byte of a text.

#ifndef TARSIO_COMMON_BENCH_SUPPORT_OR_OF_BYTES_H_
#define TARSIO_COMMON_BENCH_SUPPORT_OR_OF_BYTES_H_

#include <string>

namespace tarsio_bench {

// All bytes of `text` OR-ed together, in a loop that the compiler vectorises for the processor.
unsigned char OrOfBytes(const std::string& text);

}  // namespace tarsio_bench

#endif  // TARSIO_COMMON_BENCH_SUPPORT_OR_OF_BYTES_H_
