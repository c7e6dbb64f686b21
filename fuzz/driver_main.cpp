// Runs a fuzz target without libFuzzer: on each file in the directory, then on random inputs.
// Writes a line to RESULTS for each input: the name of the file or the seed, and a hash of the
// results.
//
//     x_fuzz RESULTS NUMBER SEED DIRECTORY
//
// On failure prints the name of the file, or the seed: `x_fuzz RESULTS 1 SEED DIRECTORY` repeats
// that input.

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

#include "require.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

using Bytes = std::vector<char>;

std::string current;  // the name of the current input
std::ofstream results;

void NameTheInput(int number) {
  std::fprintf(stderr, "with the input: %s\n", current.c_str());
  std::signal(number, SIG_DFL);
}

void Try(const Bytes& input, const std::string& name) {
  const auto* const data = reinterpret_cast<const uint8_t*>(input.data());
  current = name;
  tarsio_fuzz::portable = false;
  LLVMFuzzerTestOneInput(data, input.size());
  tarsio_fuzz::portable = true;
  tarsio_fuzz::resultsHash = 0;
  LLVMFuzzerTestOneInput(data, input.size());
  results << name << ' ' << std::hex << tarsio_fuzz::resultsHash << std::dec << '\n';
}

// Returns the number of files.
size_t TryFiles(const std::filesystem::path& directory) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const auto& path : files) {
    std::ifstream file(path, std::ios::binary);
    Try(Bytes(std::istreambuf_iterator<char>(file), {}), path.filename().string());
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
  if (argc != 5) {
    std::fputs("usage: x_fuzz RESULTS NUMBER SEED DIRECTORY\n", stderr);
    return 2;
  }
  std::signal(SIGABRT, NameTheInput);
  std::signal(SIGSEGV, NameTheInput);
  results.open(argv[1], std::ios::binary);
  const uint64_t number = std::strtoull(argv[2], nullptr, 0);
  const uint64_t seed = std::strtoull(argv[3], nullptr, 0);
  const std::filesystem::path corpus = std::filesystem::absolute(argv[4]);
  // On Windows, the model of full paths needs a current directory on drive C:.
  std::filesystem::current_path(std::filesystem::temp_directory_path());
  const size_t files = TryFiles(corpus);
  for (uint64_t i = 0; i < number; ++i) Try(RandomInput(seed + i), std::to_string(seed + i));
  std::printf("%zu files and %llu random inputs\n", files, static_cast<unsigned long long>(number));
  return results.flush() ? 0 : 1;
}
