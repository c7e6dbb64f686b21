// The three splitting functions as plain loops.

#ifndef TARSIO_COMMON_TESTS_REFERENCE_SPLIT_H_
#define TARSIO_COMMON_TESTS_REFERENCE_SPLIT_H_

#include <cstddef>
#include <string>
#include <vector>

namespace reference {

using Pieces = std::vector<std::string>;

inline bool OccursAt(const std::string& s, const std::string& part, size_t index) {
  if (index + part.size() > s.size()) return false;
  for (size_t i = 0; i < part.size(); ++i) {
    if (s[index + i] != part[i]) return false;
  }
  return true;
}

// Returns the pieces between delimiters, and the rest after the last one. `delimiter` must not be
// empty.
inline Pieces Cut(const std::string& s, const std::string& delimiter, size_t mostCuts) {
  Pieces pieces{""};
  for (size_t i = 0; i < s.size();) {
    if (pieces.size() <= mostCuts && OccursAt(s, delimiter, i)) {
      pieces.emplace_back();
      i += delimiter.size();
    } else {
      pieces.back() += s[i++];
    }
  }
  return pieces;
}

inline Pieces SplitString(const std::string& s, const std::string& delimiter) {
  if (s.empty()) return {};
  if (delimiter.empty()) return {s};
  Pieces pieces = Cut(s + delimiter, delimiter, s.size() + 1);
  pieces.pop_back();  // the empty piece after the added delimiter
  return pieces;
}

inline Pieces SplitAllByString(const std::string& s, const std::string& delimiter) {
  if (delimiter.empty()) return {s};
  Pieces pieces = Cut(s, delimiter, s.size());
  if (pieces.size() == 1 && !s.empty()) return {s, s};
  if (pieces.size() > 1 && pieces.back().empty()) pieces.pop_back();
  return pieces;
}

inline Pieces SplitFirstByString(const std::string& s, const std::string& delimiter) {
  return delimiter.empty() ? Pieces{"", s} : Cut(s, delimiter, 1);
}

}  // namespace reference

#endif  // TARSIO_COMMON_TESTS_REFERENCE_SPLIT_H_
