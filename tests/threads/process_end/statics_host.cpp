// Exits while the threads of a plugin are running, which the plugin's static uses in its
// destructor.
//
//     statics_host PLUGIN MODE SEED
//
// Prints "MODE: leaving" and returns 0 from main(); then the plugin prints "MODE: statics
// destroyed".

#include <cstdio>
#include <cstdlib>

#include "support/shared_library.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const tarsio_test::SharedLibrary plugin(argv[1]);
  if (!plugin.IsLoaded()) return 2;
  const auto begin = plugin.Function<void(const char* mode, unsigned long long seed)>("Begin");
  if (begin == nullptr) return 2;
  begin(argv[2], std::strtoull(argv[3], nullptr, 10));
  std::printf("%s: leaving\n", argv[2]);
  std::fflush(stdout);
  return 0;
}
