#include "support/memory.h"

#include <windows.h>

namespace tarsio_test {

uint64_t FreeMemory() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  return ::GlobalMemoryStatusEx(&status) != 0 ? status.ullAvailPhys : 0;
}

}  // namespace tarsio_test
