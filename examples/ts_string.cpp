// Strings for a binary interface: deep copies, and moves that copy.

//! [includes]
#include "common/ts_string.h"

#include <iostream>
#include <utility>

using tarsio::TsString;
using tarsio::TsStringPair;
//! [includes]

int main() {
  //! [pair]
  TsStringPair header;
  header.first = "Content-Type";
  header.second = "text/plain";

  const TsStringPair moved = std::move(header);
  std::cout << "moved:  " << moved.first.Cstr() << ": " << moved.second.Cstr() << '\n';
  // NOLINTNEXTLINE(bugprone-use-after-move): a pair may be used, since moving copies
  std::cout << "source: " << header.first.Cstr() << ": " << header.second.Cstr() << '\n';
  //! [pair]

  //! [text]
  TsString name(nullptr);
  std::cout << std::boolalpha << "null is empty: " << name.IsEmpty() << '\n';
  name = "plain";
  std::cout << name.Length() << " bytes, equal to a copy: " << (name == TsString(name)) << '\n';
  //! [text]
  return 0;
}
