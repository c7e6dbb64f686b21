// The number of allocations per operation, excluding what is allocated once per process. The
// library is compiled into this program, so that every allocation is counted.

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "common/blocking_queue.h"
#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "common/ts_string.h"
#include "support/allocations.h"
#include "support/gate.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::CharsetCvt;
using tarsio::FileUtils;
using tarsio::Path;
using tarsio::StringUtils;
using tarsio::ThreadPool;
using tarsio::TsString;
using tarsio_test::AllocationWatch;

// A sink that discards its lines.
struct SilentLogger : tarsio::Logger {
  void DoOutput(const char* /*line*/) override {}
};

void LogToNull(tarsio::LOG_LEVEL level) {
  const auto ignore = [](const char*) {};
  const auto threshold = [] { return tarsio::LOG_LEVEL_ERROR; };
  tarsio::TsLog(level, ignore, threshold, __FILE__, __LINE__, __func__, "%d", 1);
}

size_t AllocationsOf(const std::function<void()>& call) {
  call();  // one-time allocations happen here
  const AllocationWatch watch;
  call();
  return watch.Count();
}

TEST(AllocationCounts, Exact) {
  tarsio::Log::GetInstance().SetLogger(std::make_unique<SilentLogger>());
  tarsio::Logger sink;
  const std::string longer(100, 'x');  // too long for the small-string buffer
  const std::string shorter = "short";
  const std::string fields = "a,b,c,d";
  const std::u16string text16(100, u'x');
  const Path path(R"(C:\one\two)");
  const Path longPath(longer);
  const Path more("more");
  const TsString string("twelve chars");
  const auto timer = std::make_shared<component::TsTimer>(3600000, false);
  tarsio::BlockingQueue<int> queue(4);
  const struct {
    const char* name;
    size_t count;
    std::function<void()> call;
  } rows[] = {
      {"filtered line", 0, [] { TARSIO_LOG(tarsio::LOG_LEVEL_DEBUG, "%d", 1); }},
      {"line", 1, [] { TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%d", 1); }},
      {"default sink", 1, [&] { sink.DoOutput(longer.c_str()); }},
      {"filtered TsLog", 0, [] { LogToNull(tarsio::LOG_LEVEL_WARN); }},
      {"TsLog", 1, [] { LogToNull(tarsio::LOG_LEVEL_ERROR); }},
      {"short path", 1, [] { Path(R"(C:\one\two)"); }},  // the list of components
      {"long path", 2, [&] { const Path made(longer); }},
      {"print a short path", 0, [&] { path.Str(); }},
      {"print a long path", 1, [&] { longPath.Str(); }},
      {"copy a path", 1, [&] { const Path copy(path); }},
      {"join paths", 1, [&] { path / more; }},
      {"parent path", 1, [&] { path.ParentPath(); }},
      {"IsU8", 0, [&] { CharsetCvt::IsU8(longer); }},
      {"IsASCII", 0, [&] { CharsetCvt::IsASCII(longer); }},
      {"U8ToU16", 1, [&] { CharsetCvt::U8ToU16(longer); }},
      {"U16ToU8", 1, [&] { CharsetCvt::U16ToU8(text16); }},
      {"split four", 3, [&] { StringUtils::SplitString(fields, ","); }},  // the capacity doubles
      {"split first", 1, [&] { StringUtils::SplitFristByString(fields, ","); }},
      {"ToUpper", 1, [&] { StringUtils::ToUpper(longer); }},
      {"Contains", 0, [&] { StringUtils::Contains(longer, shorter); }},
      {"StartsWith", 0, [&] { StringUtils::StartsWith(longer, shorter); }},
      {"digest", 1, [&] { StringUtils::GetHashText(longer.data(), longer.size()); }},
      {"empty TsString", 0, [] { TsString made(""); }},
      {"TsString", 1, [] { TsString made("twelve chars"); }},
      {"copied TsString", 1, [&] { TsString copy(string); }},
      {"reused TsString", 1, [&] { TsString("twelve chars") = "twelve more!"; }},
      {"CheckDirOrFileExists", 2,
       [] { static_cast<void>(FileUtils::CheckDirOrFileExists("C:\\")); }},
      {"move a path", 1,  // by the copy
       [&] {
         Path copy(path);
         const Path moved(std::move(copy));
       }},
      {"trim", 0,
       [] {
         std::string text = " a ";
         StringUtils::Trim(text);
       }},
      {"start and stop a timer", 0,
       [&] {
         timer->Start();
         timer->Stop();
       }},
      {"push and pop", 0,
       [&] {
         int element = 1;
         static_cast<void>(queue.Push(element, 0));
         static_cast<void>(queue.Pop(element, 0));
       }},
  };
  for (const auto& row : rows) EXPECT_EQ(AllocationsOf(row.call), row.count) << row.name;
  tarsio::Log::GetInstance().SetLogger(nullptr);
}

// Once in a while the queue's list grows by a block for several tasks.
TEST(AllocationCounts, SmallTask) {
  constexpr size_t kTasks = 100;
  const auto pool = std::make_shared<ThreadPool>("pool", 1, 0, 2 * kTasks);
  tarsio_test::Gate busy;
  tarsio_test::Gate goOn;
  pool->SubmitTask([&] {
    busy.Open();
    goOn.Wait();
  });
  busy.Wait();
  size_t done = 0;
  std::function<void()> task = [&done] { ++done; };
  size_t allocations = 0;
  {
    const AllocationWatch watch;
    for (size_t i = 0; i < kTasks; ++i) pool->SubmitTask(task);
    allocations = watch.Count();
  }
  goOn.Open();
  pool->Shutdown(ThreadPool::SHUTDOWN_DRAIN);
  EXPECT_LE(allocations, kTasks);
  EXPECT_EQ(done, kTasks);
}

TEST(AllocationCounts, NewWorker) {
  const auto start = [] {
    const auto pool = std::make_shared<ThreadPool>("pool", 1, 0, 1);
    std::function<void()> task = [] {};
    size_t allocations = 0;
    {
      const AllocationWatch watch;
      pool->SubmitTask(task);
      allocations = watch.Count();
    }
    // Wait until no other thread frees or allocates for this round.
    pool->Shutdown(ThreadPool::SHUTDOWN_DRAIN);
    while (pool.use_count() > 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return allocations;
  };
  start();  // one-time allocations happen here
  // The worker with its control block, the list node, the thread with its control block, and
  // the thread's start state.
  EXPECT_EQ(start(), 4U);
}

TEST(AllocationCounts, ReadFile) {
  const tarsio_test::ScopedDirectory directory;
  directory.Write("one byte", "x");
  directory.Write("megabyte", std::string(1048576, 'x'));
  const auto read = [&](const char* name) {
    return AllocationsOf([path = directory.Text(name)] {
      std::string content;
      static_cast<void>(FileUtils::GetFileContent(path, content));
    });
  };
  EXPECT_EQ(read("megabyte"), read("one byte") + 1);
}

}  // namespace
