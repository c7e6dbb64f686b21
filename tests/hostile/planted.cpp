// A library that somebody has put where a careless program finds it. It leaves a mark when it is
// loaded, and needs no other library that could be found first.

#include <cstdio>

namespace {

[[maybe_unused]] const bool marked = [] {
  std::FILE* const mark = std::fopen("taken", "w");
  if (mark != nullptr) std::fclose(mark);
  return true;
}();

}  // namespace
