// A malicious library, placed where a careless program would load it. It leaves a mark when it is
// loaded, and depends on no other library that could be planted.

#include <cstdio>

namespace {

[[maybe_unused]] const bool marked = [] {
  std::FILE* const mark = std::fopen("taken", "w");
  if (mark != nullptr) std::fclose(mark);
  return true;
}();

}  // namespace
