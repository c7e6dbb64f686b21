#include "support/thread_locale.h"

#include <locale.h>
#include <stdlib.h>

// The C library leaks the list of folders that it parses from LOCPATH; the leak sanitizer calls
// this function.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:argz_add_sep"; }

namespace tarsio_test {

void FindTestLocales() { ::setenv("LOCPATH", TARSIO_TEST_LOCALES, 1); }

ThreadLocale::ThreadLocale() {
  FindTestLocales();
  const locale_t western = ::newlocale(LC_CTYPE_MASK, "en_US.ISO-8859-1", nullptr);
  set = western != nullptr && ::uselocale(western) != nullptr;
  state = western;
}

ThreadLocale::~ThreadLocale() {
  ::uselocale(LC_GLOBAL_LOCALE);
  if (state != nullptr) ::freelocale(static_cast<locale_t>(state));
}

}  // namespace tarsio_test
