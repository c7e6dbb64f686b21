// Splitting in three ways, trimming, replacing, and a digest.

//! [includes]
#include "common/string_utils.h"

#include <iostream>
#include <string>
#include <vector>

using tarsio::StringUtils;
//! [includes]

namespace {

void Print(const char* name, const std::vector<std::string>& pieces) {
  std::cout << name << ":";
  for (const std::string& piece : pieces) std::cout << " [" << piece << "]";
  std::cout << '\n';
}

}  // namespace

int main() {
  //! [splitting]
  Print("every piece", StringUtils::SplitString("a,,b,", ","));
  Print("without an empty last one", StringUtils::SplitAllByString("a,,b,", ","));
  Print("at the first only", StringUtils::SplitFristByString("key=value=x", "="));
  //! [splitting]

  //! [trimming]
  std::string line = "\t two words \r\n";
  StringUtils::Trim(line);
  std::cout << "trimmed: [" << line << "]\n"
            << "upper: " << StringUtils::ToUpper(line) << '\n'
            << "replaced: " << StringUtils::SpaceToUnderscore(line, " ", '_') << '\n';
  //! [trimming]

  //! [digest]
  // GetHashText() writes a space for a leading zero. Replacing them gives the usual form.
  const std::string digest = StringUtils::GetHashText("abc", 3);
  std::cout << "SHA-256: " << StringUtils::SpaceToUnderscore(digest, " ", '0') << '\n';
  //! [digest]
  return 0;
}
