// Checks for fuzz targets.

#ifndef TARSIO_COMMON_FUZZ_REQUIRE_H_
#define TARSIO_COMMON_FUZZ_REQUIRE_H_

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <type_traits>

#include "reference/utf.h"
#include "support/wine.h"

namespace tarsio_fuzz {

inline void Require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", promise);
  std::abort();
}

// A hash (FNV-1a) of the results that an input has produced. The driver writes it for each input,
// so that two systems can be compared.
inline uint64_t resultsHash = 0;

inline void Record(unsigned char byte) { resultsHash = (resultsHash ^ byte) * 0x100000001B3; }

template <typename T>
void Record(const T& result) {
  if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
    const auto value = static_cast<uint32_t>(result);
    for (int shift = 0; shift < 32; shift += 8) Record(static_cast<unsigned char>(value >> shift));
  } else {
    Record(result.size());
    for (const auto& element : result) Record(element);
  }
}

// For results that are the same on all systems.
template <typename T, typename U>
void RequireEqual(const T& result, const U& expected, const char* promise) {
  Require(result == expected, promise);
  Record(result);
}

// Takes a string from the front of the input. Numbers come from its end, so the strings in an input
// stay readable.
inline std::string TakeText(FuzzedDataProvider& input, size_t longest) {
  return input.ConsumeBytesAsString(input.ConsumeIntegralInRange<size_t>(0, longest));
}

// Restricts an input to what has the same results on all systems, Wine included.
inline bool portable = false;

// Wine replaces some ill-formed sequences differently from Windows.
inline std::string WellFormedForWine(const std::string& text) {
  return portable || tarsio_test::RunsUnderWine() ? reference::Narrow(reference::Widen(text))
                                                  : text;
}

}  // namespace tarsio_fuzz

#endif  // TARSIO_COMMON_FUZZ_REQUIRE_H_
