#include "support/memory.h"

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

}  // namespace tarsio_test
