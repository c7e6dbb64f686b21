#include <cctype>
#include <clocale>
#include <locale>
#include <stdexcept>

#include "platform/platform.h"

namespace tarsio::platform {

std::locale MakeUserLocaleGlobal() {
  try {
    const std::locale user("");
    std::locale::global(user);
    return user;
  } catch (const std::runtime_error&) {
    throw std::runtime_error("bad locale name");  // each standard library has a text of its own
  }
}

bool RuntimeLocaleIsClassic() {
  // Not by the locale's name, which another thread's setlocale() frees. toupper() and its relatives
  // read this thread's tables; those of "C" are the C library's own.
  static const locale_t classic = ::newlocale(LC_CTYPE_MASK, "C", nullptr);
  return classic != nullptr && *::__ctype_toupper_loc() == classic->__ctype_toupper;
}

}  // namespace tarsio::platform
