// Detecting encodings, and what the conversions do to single bytes.

//! [includes]
#include "common/charset_cvt.h"

#include <iostream>
#include <stdexcept>
#include <string>

using tarsio::CharsetCvt;
//! [includes]

int main() {
  std::cout << std::boolalpha;
  //! [telling]
  const std::string cafe = "caf\xC3\xA9";
  std::cout << "ASCII:    " << CharsetCvt::IsASCII(cafe) << '\n'
            << "UTF-8:    " << CharsetCvt::IsU8(cafe) << '\n'
            << "BOM:      " << CharsetCvt::StartsWithBom("\xEF\xBB\xBF" + cafe) << '\n'
            << "cut off:  " << CharsetCvt::IsU8(cafe.substr(0, 4)) << '\n';
  //! [telling]

  //! [bytes]
  // The wide conversions map bytes, not characters.
  std::cout << "as wide:  " << CharsetCvt::U8ToW(cafe).size() << " units for " << cafe.size()
            << " bytes\n";
  try {
    CharsetCvt::WToU8(L"\x4E2D");
  } catch (const std::range_error& error) {
    std::cout << "above FF: " << error.what() << '\n';
  }

  std::cout << "16 bits:  " << std::hex << static_cast<int>(CharsetCvt::U8ToU16(cafe)[3]) << '\n';
  //! [bytes]

  //! [user]
  // A string that is already UTF-8 is returned unchanged, whatever the user's locale.
  std::cout << "kept:     " << (CharsetCvt::MbToU8(cafe) == cafe) << '\n';

  // The second argument is ignored: if the variable is not set, the result is empty.
  std::cout << "unset:    [" << CharsetCvt::GetEnv(L"TARSIO_NOT_SET", "fallback") << "]\n";
  //! [user]
  return 0;
}
