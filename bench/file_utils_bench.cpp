// Reads and writes whole files, in memory if the system supports that, so that no disk is measured.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "common/file_utils.h"
#include "support/bench.h"
#include "support/memory.h"

#ifdef TARSIO_BENCH_GLIB
#include <glib.h>
#endif

namespace tarsio_bench {

namespace {

using tarsio::FileUtils;

constexpr int kWriteBinary = 0x32;  // output, truncate, binary

// A temporary directory, removed at the end of the process.
class Scratch {
 public:
  Scratch() {
    const bool inMemory = ::access("/dev/shm", W_OK) == 0 &&
                          std::filesystem::space("/dev/shm").available > uint64_t{1} << 30;
    std::string pattern = inMemory ? "/dev/shm" : std::filesystem::temp_directory_path().string();
    pattern += "/bench-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) std::abort();
    directory = pattern;
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { std::filesystem::remove_all(directory); }

  // Returns the name of a file of `bytes` bytes.
  std::string Input(size_t bytes) const {
    const std::string name = directory + "/input";
    if (!std::filesystem::exists(name) || std::filesystem::file_size(name) != bytes) {
      std::ofstream(name, std::ios::binary) << std::string(bytes, 'x');
    }
    return name;
  }
  std::string Output() const { return directory + "/output"; }

 private:
  std::string directory;
};

const Scratch& Files() {
  static const Scratch scratch;
  return scratch;
}

bool OursRead(const std::string& name) {
  std::string content;
  return FileUtils::GetFileContent("C:" + name, content) == tarsio::FILE_OPT_SUCCESS;
}

#ifdef TARSIO_BENCH_GLIB
bool GlibRead(const std::string& name) {
  char* content = nullptr;
  size_t size = 0;
  const bool done = g_file_get_contents(name.c_str(), &content, &size, nullptr) != 0;
  g_free(content);
  return done;
}
#endif

bool StdRead(const std::string& name) {
  std::ifstream file(name, std::ios::binary | std::ios::ate);
  std::string content(static_cast<size_t>(file.tellg()), '\0');
  file.seekg(0);
  file.read(content.data(), static_cast<std::streamsize>(content.size()));
  return file.good();
}

bool SystemRead(const std::string& name) {
  const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (descriptor < 0 || ::fstat(descriptor, &status) != 0) std::abort();
  const auto size = static_cast<size_t>(status.st_size);
  void* const content = std::malloc(size);
  const ssize_t count = ::read(descriptor, content, size);
  ::close(descriptor);
  std::free(content);
  return count == status.st_size;
}

template <typename Read>
void AddRead(size_t bytes, const std::string& who, Read read) {
  Add(Sized("read_a_file", "bytes", bytes), who, [read, bytes](benchmark::State& state) {
    const std::string name = Files().Input(bytes);
    for (auto _ : state) {
      if (!read(name)) state.SkipWithError("not read");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  })->UseRealTime();
}

template <typename Read>
void AddReadMemory(size_t bytes, const std::string& who, Read read) {
  AddMemory(Sized("peak_memory_of_reading_a_file", "bytes", bytes), who, [read, bytes] {
    if (!read(Files().Input(bytes))) std::abort();
  });
}

// `write` receives a new string each time and consumes it, as our interface does. A caller that
// keeps its string also pays for a copy.
template <typename Write>
void AddWrite(size_t bytes, const std::string& who, Write write) {
  Add(Sized("write_a_file", "bytes", bytes), who, [write, bytes](benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    const std::string name = Files().Output();
    bool written = write(std::string(bytes, 'y'), name);  // warms up the allocator
    for (auto _ : state) {
      std::string content(bytes, 'y');
      const auto begin = Clock::now();
      written = write(std::move(content), name) && written;
      state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    }
    if (!written) state.SkipWithError("not written");
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  })->UseManualTime();
}

void AddReads(size_t bytes) {
  AddRead(bytes, "ours", OursRead);
#ifdef TARSIO_BENCH_GLIB
  AddRead(bytes, "peer:GLib", GlibRead);
#endif
  AddRead(bytes, "peer:std", StdRead);
  AddRead(bytes, "limit:read", SystemRead);
}

void AddWrites(size_t bytes) {
  AddWrite(bytes, "ours", [](std::string content, const std::string& name) {
    return FileUtils::WriteFile(std::move(content), "C:" + name, kWriteBinary) ==
           tarsio::FILE_OPT_SUCCESS;
  });
  AddWrite(bytes, "peer:std", [](std::string content, const std::string& name) {
    std::ofstream file(name, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    return file.good();
  });
  AddWrite(bytes, "limit:write", [](std::string content, const std::string& name) {
    const int descriptor = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const ssize_t count = ::write(descriptor, content.data(), content.size());
    return ::close(descriptor) == 0 && count == static_cast<ssize_t>(content.size());
  });
}

}  // namespace

void RegisterAll() {
  constexpr size_t kLargest = size_t{256} << 20;
  for (const size_t bytes : Sizes{4 << 10, 1 << 20, kLargest}) AddReads(bytes);
  AddReadMemory(kLargest, "ours", OursRead);
#ifdef TARSIO_BENCH_GLIB
  AddReadMemory(kLargest, "peer:GLib", GlibRead);
#endif
  AddReadMemory(kLargest, "peer:std", StdRead);
  AddReadMemory(kLargest, "limit:read", SystemRead);
  for (const size_t bytes : Sizes{4 << 10, 1 << 20, kLargest}) AddWrites(bytes);
}

}  // namespace tarsio_bench
