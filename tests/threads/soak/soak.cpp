// soak SECONDS: creates and destroys every kind of object repeatedly, using a quarter of a
// processor. Checks all counts and that memory use does not grow. Exits with status 1 at the first
// failure.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/blocking_queue.h"
#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/latch.h"
#include "common/log.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "common/ts_string.h"
#include "support/events.h"
#include "support/memory.h"
#include "support/scoped_directory.h"

namespace {

using component::TsTimer;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using tarsio::FileUtils;
using tarsio::Path;
using tarsio_test::Events;
using tarsio_test::ScopedDirectory;

constexpr uint64_t kMostGrowth = uint64_t{1} << 20;

void Require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "soak: %s\n", what);
  std::_Exit(1);
}

#define REQUIRE(condition) Require((condition), #condition)

std::atomic<uint64_t> lines{0};

class CountingLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* /*line*/) override { ++lines; }
};

void PassElements() {
  constexpr int kElements = 300;
  tarsio::BlockingQueue<std::string> queue(8);
  std::thread producer([&queue] {
    for (int i = 0; i < kElements; ++i) REQUIRE(queue.Push(std::to_string(i), 0));
  });
  for (int i = 0; i < kElements; ++i) {
    std::string item;
    REQUIRE(queue.Pop(item, 0));
    REQUIRE(item == std::to_string(i));
  }
  producer.join();
  REQUIRE(queue.Push("left", -1));
  queue.Close();
  REQUIRE(queue.Size() == 0);
}

constexpr uint64_t kLinesOfTasks = 41;

// Drops the pool while its workers run. Each task logs a line, and one of them throws.
void RunTasks() {
  constexpr unsigned kTasks = kLinesOfTasks - 1;
  const auto latch = std::make_shared<tarsio::CountDownLatch>(kTasks);
  {
    const auto pool = std::make_shared<tarsio::ThreadPool>("soak", 3U, 0U, 16U);
    for (unsigned i = 0; i < kTasks; ++i) {
      pool->SubmitTask([latch, i] {
        TARSIO_LOG(tarsio::LOG_LEVEL_INFO, "task %u", i);
        latch->CountDown();
        if (i == 7) throw std::runtime_error("soak");
      });
    }
  }
  while (latch->GetCount() != 0) latch->Wait(1000);
}

void FireTimers() {
  constexpr unsigned kTimers = 20;
  const auto fired = std::make_shared<Events>();
  const auto repeated = std::make_shared<Events>();
  const auto repeating = std::make_shared<TsTimer>(1U, true);
  const auto far = std::make_shared<TsTimer>(3600000U, false);
  repeating->Init([repeated] { repeated->Add(); });
  repeating->Start();
  far->Start();
  for (unsigned i = 0; i < kTimers; ++i) {
    const auto once = std::make_shared<TsTimer>(1U + i % 7, false);
    once->Init([fired] { fired->Add(); });
    once->Start();
  }
  REQUIRE(repeated->Await(2));
  REQUIRE(fired->Await(kTimers));
  repeating->Stop();
  far->Stop();
  const int count = repeated->Count();
  std::this_thread::sleep_for(milliseconds(12));
  REQUIRE(fired->Count() == kTimers);
  REQUIRE(repeated->Count() == count);
}

void MeetAtAWakeUp() {
  tarsio::CountOutWake wake(2);
  std::atomic<bool> returned{false};
  std::thread waiter([&] {
    wake.Wait(0);
    returned = true;
  });
  while (!returned) {
    wake.CountAll();
    std::this_thread::yield();
  }
  waiter.join();
  REQUIRE(wake.GetCount() == 2);
}

void UseFiles(const ScopedDirectory& directory, uint64_t round) {
  constexpr int kBinary = 0x20;
  constexpr int kAppend = 0x08;
  const std::string folder = directory.Text("a/b");
  REQUIRE(tarsio::MakeDirs(folder));
  const std::string name = folder + "/file" + std::to_string(round);
  const std::string content(20000 + round % 5000, static_cast<char>('a' + round % 26));
  REQUIRE(FileUtils::WriteFile(content, name, kBinary) == tarsio::FILE_OPT_SUCCESS);
  REQUIRE(FileUtils::WriteFile("end", name, kBinary | kAppend) == tarsio::FILE_OPT_SUCCESS);
  REQUIRE(Path(name).FileSize() == content.size() + 3);
  std::string read;
  REQUIRE(FileUtils::GetFileContent(name, read) == tarsio::FILE_OPT_SUCCESS);
  REQUIRE(read == content + "end");
  REQUIRE(FileUtils::RemoveFile(name));
  REQUIRE(!FileUtils::CheckDirOrFileExists(name));
  REQUIRE(FileUtils::GetFileContent(name, read) == tarsio::FILE_OPT_NOT_FILE);
  REQUIRE(FileUtils::RemoveDir(folder));
  REQUIRE(FileUtils::RemoveDir(directory.Text("a")));
}

void UseTexts(uint64_t round) {
  const std::string number = std::to_string(round);
  const Path path("C:\\soak\\" + number + ".txt");
  REQUIRE(path.Extension() == "txt");
  REQUIRE((path.ParentPath() / (number + ".txt")) == path);
  REQUIRE(tarsio::StringUtils::SplitString("a," + number + ",c", ",").at(1) == number);
  REQUIRE(tarsio::StringUtils::GetHashText(number.data(), number.size()).size() == 64);
  REQUIRE(tarsio::CharsetCvt::WToU8(tarsio::CharsetCvt::U8ToW(number)) == number);
  tarsio::TsStringPair pair;
  pair.first = number.c_str();
  pair.second = pair.first;
  REQUIRE(pair.second == number.c_str());
}

// Returns the memory use after the workers of all dropped pools have retired.
uint64_t MemoryAtRest() {
  std::this_thread::sleep_for(milliseconds(1500));
  return tarsio_test::ProcessMemory();
}

int Soak(seconds duration) {
  tarsio::Log::GetInstance().SetLogger(std::make_unique<CountingLogger>());
  tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_INFO);
  const ScopedDirectory directory;

  const auto start = steady_clock::now();
  auto nextReport = start + std::min<steady_clock::duration>(duration / 2, seconds(60));
  uint64_t before = 0;  // memory use after the warm-up
  uint64_t after = 0;
  uint64_t rounds = 0;
  const auto report = [&] {
    after = MemoryAtRest();
    if (before == 0) before = after;
    std::printf("%5lld s  %llu rounds  %llu KiB\n",
                static_cast<long long>((steady_clock::now() - start) / seconds(1)),
                static_cast<unsigned long long>(rounds),
                static_cast<unsigned long long>(after / 1024));
    std::fflush(stdout);
  };
  while (steady_clock::now() < start + duration) {
    const auto begin = steady_clock::now();
    PassElements();
    RunTasks();
    FireTimers();
    MeetAtAWakeUp();
    UseFiles(directory, rounds);
    UseTexts(rounds);
    ++rounds;
    const auto now = steady_clock::now();
    if (now >= nextReport) {
      report();
      nextReport = now + std::min<steady_clock::duration>(duration / 10, seconds(60));
    }
    std::this_thread::sleep_for((now - begin) * 2);
  }
  REQUIRE(before > 0);
  while (lines < rounds * kLinesOfTasks) std::this_thread::sleep_for(milliseconds(1));
  report();
  REQUIRE(lines == rounds * kLinesOfTasks);
  Require(after <= before + kMostGrowth, "memory grows");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int duration = argc == 2 ? std::atoi(argv[1]) : 0;
  if (duration <= 0) {
    std::fputs("usage: soak SECONDS\n", stderr);
    return 2;
  }
  return Soak(seconds(duration));
}
