#include "support/wine.h"

#include <windows.h>

namespace tarsio_test {

bool RunsUnderWine() {
  return ::GetProcAddress(::GetModuleHandleA("ntdll"), "wine_get_version") != nullptr;
}

}  // namespace tarsio_test
