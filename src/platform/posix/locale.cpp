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
    throw std::runtime_error("bad locale name");  // standard libraries differ in their messages
  }
}

bool RuntimeLocaleIsClassic() {
  // Do not compare the locale's name: another thread's setlocale() may free it. toupper() and
  // similar functions read this thread's tables. All "C" locales share the same ones.
  static const locale_t classic = ::newlocale(LC_CTYPE_MASK, "C", nullptr);
  return classic != nullptr && *::__ctype_toupper_loc() == classic->__ctype_toupper;
}

}  // namespace tarsio::platform
