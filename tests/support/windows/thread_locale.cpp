#include "support/thread_locale.h"

#include <locale.h>

namespace tarsio_test {

void FindTestLocales() {}

// This runtime has no per-thread locales, so the process's locale is set.
ThreadLocale::ThreadLocale() {
  set = ::setlocale(LC_CTYPE, "English_United States.1252") != nullptr;
}

ThreadLocale::~ThreadLocale() { ::setlocale(LC_CTYPE, "C"); }

}  // namespace tarsio_test
