#include "support/memory.h"

#include <windows.h>
// Needs windows.h first.
#include <psapi.h>

namespace tarsio_test {

uint64_t FreeMemory() {
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  return ::GlobalMemoryStatusEx(&status) != 0 ? status.ullAvailPhys : 0;
}

uint64_t ProcessMemory() {
  PROCESS_MEMORY_COUNTERS_EX counters{};
  ::GetProcessMemoryInfo(::GetCurrentProcess(),
                         reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof counters);
  // Wine only reports resident pages.
  return counters.PrivateUsage != 0 ? counters.PrivateUsage : counters.WorkingSetSize;
}

}  // namespace tarsio_test
