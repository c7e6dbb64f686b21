// Constructs and copies strings for a binary interface. Each iteration includes the destructor.

#include <cstdlib>
#include <cstring>
#include <string>

#include "common/ts_string.h"
#include "support/bench.h"

namespace tarsio_bench {

namespace {

void AddSize(size_t characters) {
  const std::string text(characters, 'x');

  const std::string construct = Sized("construct_a_TsString", "characters", characters);
  AddCall(construct, "ours", [text] { return tarsio::TsString(text.c_str()).Cstr() != nullptr; });
  AddCall(construct, "peer:std", [text] { return std::string(text.c_str()); });
  AddCall(construct, "peer:strdup", [text] {
    char* const copy = ::strdup(text.c_str());
    benchmark::DoNotOptimize(copy);
    std::free(copy);
    return copy != nullptr;
  });

  const tarsio::TsString original(text.c_str());
  const std::string copy = Sized("copy_a_TsString", "characters", characters);
  AddCall(copy, "ours", [original] { return tarsio::TsString(original).Cstr() != nullptr; });
  AddCall(copy, "peer:std", [text] { return std::string(text); });

  for (const std::string& workload : {construct, copy}) {
    AddCall(workload, "limit:malloc+memcpy", [text] {
      auto* const bytes = static_cast<char*>(std::malloc(text.size() + 1));
      std::memcpy(bytes, text.c_str(), text.size() + 1);
      benchmark::DoNotOptimize(bytes);
      benchmark::ClobberMemory();
      std::free(bytes);
      return bytes != nullptr;
    });
  }
}

}  // namespace

void RegisterAll() {
  for (const size_t characters : Sizes{12, 200, 4096}) AddSize(characters);
}

}  // namespace tarsio_bench
