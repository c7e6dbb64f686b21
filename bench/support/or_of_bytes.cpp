#include "support/or_of_bytes.h"

#include <cstddef>

namespace tarsio_bench {

namespace {

#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
unsigned char
Or(const char* bytes, size_t count) {
  unsigned char all = 0;
  for (size_t i = 0; i < count; ++i) all |= static_cast<unsigned char>(bytes[i]);
  return all;
}

}  // namespace

unsigned char OrOfBytes(const std::string& text) { return Or(text.data(), text.size()); }

}  // namespace tarsio_bench
