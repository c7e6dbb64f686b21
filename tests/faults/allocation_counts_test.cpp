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

struct Row {
  const char* name;
  size_t count;
  std::function<void()> call;
};

class AllocationCounts : public testing::TestWithParam<Row> {};

const std::string kLong(100, 'x');  // too long for the small-string buffer
const std::string kShort = "short";

TEST_P(AllocationCounts, Exact) {
  tarsio::Log::GetInstance().SetLogger(std::make_unique<SilentLogger>());
  EXPECT_EQ(AllocationsOf(GetParam().call), GetParam().count);
  tarsio::Log::GetInstance().SetLogger(nullptr);
}

// A shutdown by this method returns when all tasks have run.
constexpr auto kMethodWithoutName = static_cast<tarsio::ThreadPool::SHUTDOWN_METHOD>(2);

// Once in a while the queue's list grows by a block for several tasks.
TEST(PoolAllocations, SmallTask) {
  constexpr size_t kTasks = 100;
  const auto pool = std::make_shared<tarsio::ThreadPool>("pool", 1, 0, 2 * kTasks);
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
  pool->Shutdown(kMethodWithoutName);
  EXPECT_LE(allocations, kTasks);
  EXPECT_EQ(done, kTasks);
}

TEST(PoolAllocations, NewWorker) {
  const auto start = [] {
    const auto pool = std::make_shared<tarsio::ThreadPool>("pool", 1, 0, 1);
    std::function<void()> task = [] {};
    size_t allocations = 0;
    {
      const AllocationWatch watch;
      pool->SubmitTask(task);
      allocations = watch.Count();
    }
    // Wait until no other thread frees or allocates for this round.
    pool->Shutdown(kMethodWithoutName);
    while (pool.use_count() > 1) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return allocations;
  };
  start();  // one-time allocations happen here
  // The worker with its control block, the list node, the thread with its control block, and
  // the thread's start state.
  EXPECT_EQ(start(), 4U);
}

TEST(FileAllocations, Read) {
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

const Path kThree(R"(C:\one\two)");
const std::string kFields = "a,b,c,d";
const TsString kText("twelve chars");

INSTANTIATE_TEST_SUITE_P(
    Each, AllocationCounts,
    testing::Values(
        Row{"FilteredLine", 0, [] { TARSIO_LOG(tarsio::LOG_LEVEL_DEBUG, "%d", 1); }},
        Row{"Line", 1, [] { TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%d", 1); }},
        Row{"DefaultSink", 1,
            [] {
              static tarsio::Logger sink;
              sink.DoOutput(kLong.c_str());
            }},
        Row{"FilteredTsLog", 0, [] { LogToNull(tarsio::LOG_LEVEL_WARN); }},
        Row{"TsLog", 1, [] { LogToNull(tarsio::LOG_LEVEL_ERROR); }},
        Row{"ShortPath", 1, [] { Path(R"(C:\one\two)"); }},  // the list of components
        Row{"LongPath", 2, [] { Path{kLong}; }}, Row{"PrintShort", 0, [] { kThree.Str(); }},
        Row{"PrintLong", 1,
            [] {
              static const Path path(kLong);
              path.Str();
            }},
        Row{"CopyPath", 1, [] { Path copy(kThree); }},
        Row{"MovePath", 1,
            [] {
              Path copy(kThree);
              Path moved(std::move(copy));
            }},
        Row{"JoinPath", 1,
            [] {
              static const Path more("more");
              kThree / more;
            }},
        Row{"ParentPath", 1, [] { kThree.ParentPath(); }},
        Row{"IsU8", 0, [] { CharsetCvt::IsU8(kLong); }},
        Row{"IsAscii", 0, [] { CharsetCvt::IsASCII(kLong); }},
        Row{"U8ToU16", 1, [] { CharsetCvt::U8ToU16(kLong); }},
        Row{"U16ToU8", 1,
            [] {
              static const std::u16string text(100, u'x');
              CharsetCvt::U16ToU8(text);
            }},
        Row{"SplitFour", 3,
            [] { StringUtils::SplitString(kFields, ","); }},  // the capacity doubles
        Row{"SplitFirst", 1, [] { StringUtils::SplitFristByString(kFields, ","); }},
        Row{"Trim", 0,
            [] {
              std::string text = " a ";
              StringUtils::Trim(text);
            }},
        Row{"ToUpper", 1, [] { StringUtils::ToUpper(kLong); }},
        Row{"Contains", 0, [] { StringUtils::Contains(kLong, kShort); }},
        Row{"StartsWith", 0, [] { StringUtils::StartsWith(kLong, kShort); }},
        Row{"DigestText", 1, [] { StringUtils::GetHashText(kLong.data(), kLong.size()); }},
        Row{"EmptyTsString", 0, [] { TsString text(""); }},
        Row{"TsString", 1, [] { TsString text("twelve chars"); }},
        Row{"CopiedTsString", 1, [] { TsString copy(kText); }},
        Row{"ReusedTsString", 1,
            [] {
              TsString text("twelve chars");
              text = "twelve more!";
            }},
        Row{"TimerStartStop", 0,
            [] {
              static const auto timer = std::make_shared<component::TsTimer>(3600000, false);
              timer->Start();
              timer->Stop();
            }},
        Row{"QueuePushPop", 0,
            [] {
              static tarsio::BlockingQueue<int> queue(4);
              int element = 1;
              static_cast<void>(queue.Push(element, 0));
              static_cast<void>(queue.Pop(element, 0));
            }},
        Row{"CheckFile", 2, [] { static_cast<void>(FileUtils::CheckDirOrFileExists("C:\\")); }}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
