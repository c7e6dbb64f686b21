#include "support/memory.h"

#include <unistd.h>

#include <fstream>
#include <string>

namespace tarsio_test {

uint64_t FreeMemory() {
  std::ifstream information("/proc/meminfo");
  std::string name;
  while (information >> name) {
    uint64_t kibibytes = 0;
    if (name == "MemAvailable:" && information >> kibibytes) return kibibytes * 1024;
  }
  return 0;
}

uint64_t ProcessMemory() {
  std::ifstream pages("/proc/self/statm");
  uint64_t size = 0;
  uint64_t resident = 0;
  pages >> size >> resident;
  return resident * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE));
}

}  // namespace tarsio_test
