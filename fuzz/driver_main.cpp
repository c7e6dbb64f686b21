// Runs a fuzz target without libFuzzer: on each file in the directories, then on random inputs.
//
//     x_fuzz NUMBER SEED [DIRECTORY...]
//
// On failure prints the name of the file, or the seed: `x_fuzz 1 SEED` repeats that input.

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Bytes = std::vector<char>;

std::string current;  // the name of the current input

void NameTheInput(int number) {
  std::fprintf(stderr, "with the input: %s\n", current.c_str());
  std::signal(number, SIG_DFL);
}

void Try(const Bytes& input, const std::string& name) {
  current = name;
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
}

// Returns the number of files.
size_t TryFiles(const std::string& directory) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const auto& path : files) {
    std::ifstream file(path, std::ios::binary);
    Try(Bytes(std::istreambuf_iterator<char>(file), {}), path.string());
  }
  return files.size();
}

// Returns up to 4095 bytes. Half of the inputs have fewer than 64.
Bytes RandomInput(uint64_t seed) {
  std::mt19937_64 random(seed);
  const uint64_t bound = uint64_t{1} << random() % 13;
  Bytes input(random() % bound);
  for (char& byte : input) byte = static_cast<char>(random());
  return input;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: x_fuzz NUMBER SEED [DIRECTORY...]\n", stderr);
    return 2;
  }
  std::signal(SIGABRT, NameTheInput);
  std::signal(SIGSEGV, NameTheInput);
  size_t files = 0;
  for (int i = 3; i < argc; ++i) files += TryFiles(argv[i]);
  const uint64_t number = std::strtoull(argv[1], nullptr, 0);
  const uint64_t seed = std::strtoull(argv[2], nullptr, 0);
  for (uint64_t i = 0; i < number; ++i) Try(RandomInput(seed + i), std::to_string(seed + i));
  std::printf("%zu files and %llu random inputs\n", files, static_cast<unsigned long long>(number));
  return 0;
}
