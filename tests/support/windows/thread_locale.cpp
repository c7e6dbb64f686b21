#include "support/thread_locale.h"

#include <locale.h>

namespace tarsio_test {

void FindTestLocales() {}

// This runtime gives a thread no locale of its own; so it is the process's, meanwhile.
ThreadLocale::ThreadLocale() {
  set = ::setlocale(LC_CTYPE, "English_United States.1252") != nullptr;
}

ThreadLocale::~ThreadLocale() { ::setlocale(LC_CTYPE, "C"); }

}  // namespace tarsio_test
