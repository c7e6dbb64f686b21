// Exhaustive inputs.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_ALL_TEXTS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_ALL_TEXTS_H_

#include <cstddef>

namespace tarsio_test {

// Calls `check` with each string of up to `longest` of the units.
template <typename Text, typename Check>
void ForEachText(const Text& units, size_t longest, const Check& check, const Text& text = {}) {
  check(text);
  if (text.size() == longest) return;
  for (const auto unit : units) ForEachText(units, longest, check, text + unit);
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_ALL_TEXTS_H_
