#include <clocale>
#include <cstring>
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
  if (::uselocale(nullptr) != LC_GLOBAL_LOCALE) return false;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): asks, and sets nothing
  return std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") == 0;
}

}  // namespace tarsio::platform
