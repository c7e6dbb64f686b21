// Checks for fuzz targets.

#ifndef TARSIO_COMMON_FUZZ_REQUIRE_H_
#define TARSIO_COMMON_FUZZ_REQUIRE_H_

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace tarsio_fuzz {

inline void Require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", promise);
  std::abort();
}

// Takes a string from the front of the input. Numbers come from its end, so the strings in an input
// stay readable.
inline std::string TakeText(FuzzedDataProvider& input, size_t longest) {
  return input.ConsumeBytesAsString(input.ConsumeIntegralInRange<size_t>(0, longest));
}

}  // namespace tarsio_fuzz

#endif  // TARSIO_COMMON_FUZZ_REQUIRE_H_
