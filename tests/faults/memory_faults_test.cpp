// Lets each allocation of each function fail in turn, alone and with all later ones: the caller
// gets std::bad_alloc, nothing leaks, and objects are in the documented state. The library is
// compiled into this program, since a DLL has its own allocator.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "common/blocking_queue.h"
#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/misc.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/sys_info.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/allocations.h"
#include "support/environment.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/scoped_directory.h"

namespace {

using component::TsTimer;
using tarsio::BlockingQueue;
using tarsio::CharsetCvt;
using tarsio::FileUtils;
using tarsio::Log;
using tarsio::Logger;
using tarsio::Path;
using tarsio::PathResolver;
using tarsio::StringUtils;
using tarsio::ThreadPool;
using tarsio_test::AllocationWatch;
using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::kTestTimeout;
using tarsio_test::LiveAllocations;
using tarsio_test::ScopedDirectory;
using tarsio_test::ScopedVariable;

// One attempt: the call, and the check after a failure. Both own the objects they use.
struct Attempt {
  std::function<void()> call;
  std::function<void()> checkFailure = [] {};
};

// A call that is tried again and again: one without side effects, or one that prepares an attempt.
struct Row {
  template <typename Call>
  Row(const char* title, const Call& call) : name(title) {
    if constexpr (std::is_void_v<decltype(call())>) {
      prepare = [call] { return Attempt{call}; };
    } else {
      prepare = call;
    }
  }

  const char* name;
  std::function<Attempt()> prepare;
};

// A call on a copy of `object` that a failure leaves unchanged.
template <typename T>
Row Keeps(const char* name, const T& object, const std::function<void(T&)>& call) {
  const auto prepare = [=] {
    const auto state = std::make_shared<T>(object);
    return Attempt{[=] { call(*state); }, [=] { EXPECT_TRUE(*state == object); }};
  };
  return {name, prepare};
}

// Makes the call with some of its allocations failing, which the caller must learn. Returns whether
// it failed.
bool Fails(const std::function<void()>& call, size_t allowed, size_t refused) {
  bool threw = false;
  size_t allocations = 0;
  {
    const AllocationWatch watch(allowed, refused);
    try {
      call();
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    allocations = watch.Count();
  }
  EXPECT_TRUE(threw || allocations <= allowed) << "the failure was not reported to the caller";
  return threw || allocations > allowed;
}

// Fails the first allocation of each call, then the second and so on, until the call succeeds: once
// alone, and once with all later ones. Some row has to allocate.
void FailEachAllocationOf(const std::vector<Row>& rows) {
  size_t failures = 0;
  for (const Row& row : rows) {
    row.prepare().call();  // one-time allocations happen here
    for (const size_t refused : {SIZE_MAX, size_t{1}}) {
      bool failed = true;
      for (size_t allowed = 0; failed; ++allowed) {
        SCOPED_TRACE(std::string(row.name) + " after " + std::to_string(allowed) + " allocations");
        ASSERT_LT(allowed, 2000U);
        const size_t before = LiveAllocations();
        {
          const Attempt attempt = row.prepare();
          failed = Fails(attempt.call, allowed, refused);
          if (failed) attempt.checkFailure();
        }
        EXPECT_EQ(LiveAllocations(), before) << "memory leak";
        failures += failed ? 1 : 0;
      }
    }
  }
  EXPECT_GT(failures, 0U);
}

// Returns a string that does not fit the small-string buffer.
std::string Long(const std::string& text) { return text + std::string(100, 'x'); }
std::wstring LongWide(const std::wstring& text) { return text + std::wstring(100, L'x'); }

// ---- strings ----

TEST(MemoryFaults, Strings) {
  const std::string text = Long("a,b,") + ',' + Long("c");
  const std::string delimiter = ",";
  FailEachAllocationOf({
      {"SplitString", [=] { StringUtils::SplitString(text, delimiter); }},
      {"SplitAllByString", [=] { StringUtils::SplitAllByString(text, delimiter); }},
      {"SplitFristByString", [=] { StringUtils::SplitFristByString(text, delimiter); }},
      {"SplitString by an empty one", [=] { StringUtils::SplitString(text, ""); }},
      {"SplitAllByString by an empty one", [=] { StringUtils::SplitAllByString(text, ""); }},
      {"ToUpper", [=] { StringUtils::ToUpper(text); }},
      {"ToLower", [=] { StringUtils::ToLower(text); }},
      {"SpaceToUnderscore", [=] { StringUtils::SpaceToUnderscore(text, delimiter, '_'); }},
      {"GetHashText", [=] { StringUtils::GetHashText(text.data(), text.size()); }},
      {"GetSupportedCiphersList", [] { tarsio::GetSupportedCiphersList(); }},
  });
}

TEST(MemoryFaults, Encodings) {
  const ScopedVariable user("LC_ALL", "C");  // a locale that always exists
  const std::string text = Long("a");
  const auto convertBroken = [broken = text + '\xFF'] {
    try {
      CharsetCvt::MbToU8(broken);
    } catch (const std::range_error&) {
      // FF is a character in some encodings only.
    }
  };
  FailEachAllocationOf({
      {"MbToU8 of UTF-8", [=] { CharsetCvt::MbToU8(text); }},
      {"MbToU8 of the user's encoding", convertBroken},
      {"U8ToMb", [=] { CharsetCvt::U8ToMb(text); }},
      {"WToU8", [] { CharsetCvt::WToU8(LongWide(L"a")); }},
      {"U8ToW", [=] { CharsetCvt::U8ToW(text); }},
      {"U16ToU8", [] { CharsetCvt::U16ToU8(std::u16string(100, u'a')); }},
      {"U8ToU16", [=] { CharsetCvt::U8ToU16(text); }},
      {"U32ToU8", [] { CharsetCvt::U32ToU8(std::u32string(100, U'a')); }},
      {"U8ToU32", [=] { CharsetCvt::U8ToU32(text); }},
      {"GetEnv", [] { CharsetCvt::GetEnv(LongWide(L"PATH"), Long("default")); }},
  });
}

// ---- log ----

void Format(std::string& out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  try {
    Logger().VFormat(tarsio::LOG_LEVEL_ERROR, out, "/a/long/enough/path/to/allocate/file.cpp", 1,
                     "f", format, args);
  } catch (...) {
    va_end(args);
    throw;
  }
  va_end(args);
}

int lines = 0;

// Counts lines without allocating.
struct CountingSink : Logger {
  void DoOutput(const char* /*line*/) override { ++lines; }
};

TEST(MemoryFaults, LogLines) {
  Log::GetInstance().SetLogger(std::make_unique<CountingSink>());
  const std::string message = Long(Long("message"));
  const auto output = [&] { Logger().DoOutput(message.c_str()); };
  const auto doLog = [&] {
    Log::GetInstance().DoLog(tarsio::LOG_LEVEL_ERROR, "/a/b.cpp", 1, "f", "%s", message.c_str());
  };
  const auto tsLog = [&] {
    tarsio::TsLog(
        tarsio::LOG_LEVEL_ERROR, [](const char*) { ++lines; },
        [] { return tarsio::LOG_LEVEL_ERROR; }, "/a/b.cpp", 1, "f", "%s", message.c_str());
  };
  const auto outputsNothing = [](const std::function<void()>& call) {
    lines = 0;
    return Attempt{call, [=] {
                     EXPECT_EQ(lines, 0);
                     call();
                     EXPECT_EQ(lines, 1);
                   }};
  };
  std::streambuf* const before = std::cout.rdbuf(nullptr);
  FailEachAllocationOf({
      Keeps<std::string>("VFormat", Long("unchanged"),
                         [&](std::string& line) { Format(line, "%s", message.c_str()); }),
      {"DoOutput", output},
      {"DoLog", [&] { return outputsNothing(doLog); }},
      {"TsLog", [&] { return outputsNothing(tsLog); }},
  });
  std::cout.rdbuf(before);
}

// ---- paths ----

// After a failure the path may have any value, but is still usable.
Attempt OnPath(const std::function<void(Path&)>& call) {
  const auto path = std::make_shared<Path>("C:\\" + Long("before"));
  return {[=] { call(*path); },
          [=] {
            path->Str();
            path->Set("C:\\a");
            EXPECT_EQ(path->Str(), "C:\\a");
          }};
}

TEST(MemoryFaults, Paths) {
  const std::string name = Long("name");
  const std::string text = "C:\\" + name + '/' + name + ".txt";
  const Path path(text);
  const Path relative(name);
  using P = Path&;
  FailEachAllocationOf({
      {"from a string", [=] { const Path parsed(text); }},
      {"from characters", [=] { const Path parsed(text.c_str()); }},
      {"from a wide string", [] { const Path parsed(LongWide(L"C:\\")); }},
      {"a share", [=] { const Path parsed("\\\\" + name + '\\' + name); }},
      {"a copy", [=] { const Path copy(path); }},
      {"Set", [=] { return OnPath([=](P p) { p.Set(text); }); }},
      {"Set by POSIX", [=] { return OnPath([=](P p) { p.Set(text, Path::POSIX_PATH); }); }},
      {"Set of a wide string", [] { return OnPath([](P p) { p.Set(LongWide(L"C:\\a\\")); }); }},
      {"assigned path", [=] { return OnPath([=](P p) { p = relative / relative; }); }},
      {"assigned string", [] { return OnPath([](P p) { p = LongWide(L"C:\\"); }); }},
      Keeps<Path>("Str", path, [](P p) { p.Str(); }),
      Keeps<Path>("Str in the long form", path / relative / relative, [](P p) { p.Str(); }),
      Keeps<Path>("Wstr", path, [](P p) { p.Wstr(); }),
      Keeps<Path>("join", path, [=](P p) { p / relative; }),
      Keeps<Path>("ParentPath", path, [](P p) { p.ParentPath(); }),
      Keeps<Path>("ParentPath of an empty path", Path(), [](P p) { p.ParentPath(); }),
      Keeps<Path>("Filename", path, [](P p) { p.Filename(); }),
      Keeps<Path>("Extension", path, [](P p) { p.Extension(); }),
      Keeps<Path>("Absolute", relative, [](P p) { p.Absolute(); }),
      {"Getcwd", [] { Path::Getcwd(); }},
  });
}

TEST(MemoryFaults, PathQueries) {
  const ScopedDirectory directory;
  const std::string name = Long("file");
  directory.Write(name, "content");
  const Path path(directory.Text(name));
  const Path missing(directory.Text(Long("missing")));
  const auto make = [&directory](const Path& made, bool (*call)(const Path&)) {
    return [&directory, made, call] {
      std::filesystem::remove_all(directory.Native(Long("missing")));
      return Attempt{[=] { static_cast<void>(call(made)); }, [=] { EXPECT_FALSE(made.Exists()); }};
    };
  };
  using P = Path&;
  FailEachAllocationOf({
      Keeps<Path>("Exists", path, [](P p) { static_cast<void>(p.Exists()); }),
      Keeps<Path>("IsFile", path, [](P p) { static_cast<void>(p.IsFile()); }),
      Keeps<Path>("IsDirectory", path, [](P p) { static_cast<void>(p.IsDirectory()); }),
      Keeps<Path>("FileSize", path, [](P p) { static_cast<void>(p.FileSize()); }),
      Keeps<Path>("Exists of a missing file", missing, [](P p) { static_cast<void>(p.Exists()); }),
      {"MakeDir", make(missing, tarsio::MakeDir)},
      {"MakeDirs", make(missing / "below", tarsio::MakeDirs)},
  });
}

TEST(MemoryFaults, Resolver) {
  const Path path("C:\\" + Long("path"));
  using R = PathResolver&;
  const auto on = [=](const std::function<void(R)>& call) {
    const auto resolver = std::make_shared<PathResolver>();
    resolver->Append(path);
    return Attempt{[=] { call(*resolver); },
                   [=] {
                     ASSERT_EQ(resolver->Size(), 2U);
                     EXPECT_TRUE((*resolver)[0] == Path::Getcwd());
                     EXPECT_TRUE((*resolver)[1] == path);
                   }};
  };
  FailEachAllocationOf({
      {"constructor", [] { const PathResolver resolver; }},
      {"Append", [=] { return on([=](R r) { r.Append(path); }); }},
      {"Prepend", [=] { return on([=](R r) { r.Prepend(path); }); }},
      {"Resolve", [=] { return on([](R r) { static_cast<void>(r.Resolve("missing")); }); }},
      {"copy", [=] { return on([](R r) { const PathResolver copy(r); }); }},
  });
}

// ---- files ----

// Returns the lowest free descriptor. A leaked file makes it grow.
int NextDescriptor() {
  std::FILE* const file = std::fopen("descriptor", "w");
  const int descriptor = fileno(file);
  std::fclose(file);
  return descriptor;
}

TEST(MemoryFaults, Files) {
  const ScopedDirectory directory;
  const int descriptor = NextDescriptor();
  const std::string name = Long("file");
  const std::string text = directory.Text(name);
  std::string content;
  const auto onFile = [&](const std::function<void()>& call) {
    return [&, call] {
      directory.Write(name, "old");
      content = "unchanged";
      return Attempt{call, [&] {
                       EXPECT_EQ(content, "unchanged");
                       EXPECT_EQ(directory.Read(name), "old");
                       EXPECT_EQ(NextDescriptor(), descriptor) << "a file was left open";
                     }};
    };
  };
  const auto write = [&](int mode) {
    return onFile([=] { static_cast<void>(FileUtils::WriteFile(Long("new"), text, mode)); });
  };
  const auto makeDir = [&directory, below = directory.Text("a/" + Long("b") + "/")] {
    const auto remove = [&directory] { std::filesystem::remove_all(directory.Native("a")); };
    remove();
    return Attempt{[=] { static_cast<void>(FileUtils::MakeDir(below)); }, remove};
  };
  FailEachAllocationOf({
      {"read", onFile([&] { static_cast<void>(FileUtils::GetFileContent(text, content)); })},
      {"write", write(0x20)},
      {"write in place", write(0x21)},
      {"append", write(0x28)},
      {"exists", [=] { static_cast<void>(FileUtils::CheckDirOrFileExists(text)); }},
      {"MakeDir", makeDir},
      {"RemoveDir", [] { static_cast<void>(FileUtils::RemoveDir(Long(".\\missing"))); }},
      {"RemoveFile", [] { static_cast<void>(FileUtils::RemoveFile(Long(".\\missing"))); }},
  });
}

// ---- queue ----

// The report of a refused push allocates, too.
TEST(MemoryFaults, Queue) {
  Log::GetInstance().SetLogger(std::make_unique<CountingSink>());
  Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_WARN);
  using Queue = BlockingQueue<std::string>;
  const auto push = [item = Long("item")](uint64_t capacity) {
    return [capacity, item] {
      const auto queue = std::make_shared<Queue>(capacity);
      static_cast<void>(queue->Push(Long("first"), -1));
      return Attempt{[=] { static_cast<void>(queue->Push(item, -1)); },
                     [=] {
                       std::string popped;
                       EXPECT_EQ(queue->Size(), 1U);
                       EXPECT_TRUE(queue->Pop(popped, -1));
                       EXPECT_EQ(popped, Long("first"));
                       EXPECT_TRUE(queue->Push(Long("second"), -1));
                       EXPECT_TRUE(queue->Pop(popped, -1));
                       EXPECT_EQ(popped, Long("second"));
                     }};
    };
  };
  FailEachAllocationOf({
      {"Push", push(2)},
      {"refused Push", push(1)},
  });
}

// Neither Close() nor the destruction of a pool allocates.
TEST(MemoryFaults, Close) {
  BlockingQueue<std::string> queue(2U);
  static_cast<void>(queue.Push(Long("first"), -1));
  auto pool = std::make_shared<ThreadPool>(Long("pool"), 0U, 0U, 10U);
  const auto owned = std::make_shared<int>(0);
  pool->SubmitTask([owned] {});
  size_t allocations = 0;
  {
    const AllocationWatch watch(0);
    queue.Close();
    pool.reset();
    allocations = watch.Count();
  }
  EXPECT_EQ(allocations, 0U);
  EXPECT_EQ(queue.Size(), 0U);
  EXPECT_EQ(owned.use_count(), 1);
}

// ---- threads ----

// A worker's thread frees its last objects shortly after it has left the pool.
bool AllocationsFallTo(size_t number) {
  for (const auto end = std::chrono::steady_clock::now() + kTestTimeout;
       std::chrono::steady_clock::now() < end;) {
    if (LiveAllocations() == number) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

// After a failure a queued task stays queued, no worker is listed, and the next submission works.
TEST(MemoryFaults, SubmitTask) {
  const auto runs = std::make_shared<Events>();
  int expected = 0;
  // Returns whether the submission failed.
  const auto submit = [&](size_t allowed, size_t refused) {
    const auto pool = std::make_shared<ThreadPool>(Long("pool"), 2U, 0U, 10U);
    std::function<void()> task = [runs, text = Long("owned by the task")] { runs->Add(); };
    const bool failed = Fails([&] { pool->SubmitTask(task); }, allowed, refused);
    if (failed) {
      EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
      EXPECT_LE(pool->GetPendingTaskNumber(), 1U);
      expected += static_cast<int>(pool->GetPendingTaskNumber());
      pool->SubmitTask(task);
    }
    ++expected;
    EXPECT_TRUE(runs->Await(expected));
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
    return failed;
  };
  submit(SIZE_MAX, SIZE_MAX);                                    // one-time allocations happen here
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // until the worker has retired
  const size_t before = LiveAllocations();
  for (const size_t refused : {SIZE_MAX, size_t{1}}) {
    size_t allowed = 0;
    while (allowed < 100 && submit(allowed, refused)) ++allowed;
    EXPECT_TRUE(0 < allowed && allowed < 100);
  }
  EXPECT_TRUE(AllocationsFallTo(before)) << "everything is released eventually";
  EXPECT_EQ(runs->Count(), expected);
}

// A worker that cannot report an exception goes on.
TEST(MemoryFaults, TaskReport) {
  struct Shared {
    Gate begin;
    Gate end;
    std::optional<AllocationWatch> watch;
    size_t allocations = 0;
  };
  const auto shared = std::make_shared<Shared>();
  const auto pool = std::make_shared<ThreadPool>("pool", 1U, 0U, 10U);
  pool->SubmitTask([shared] {
    shared->begin.Wait();
    shared->watch.emplace(0);
    throw std::bad_alloc();
  });
  pool->SubmitTask([shared] {
    shared->allocations = shared->watch->Count();
    shared->watch.reset();
    shared->end.Open();
  });
  shared->begin.Open();
  ASSERT_TRUE(shared->end.WaitFor());
  EXPECT_GT(shared->allocations, 0U) << "the report allocates";
}

// ---- timers ----

// Starts without a timer thread. A timer that could not be queued is not marked started and can be
// started again; a queued one stays queued.
TEST(MemoryFaults, TimerStart) {
  for (const size_t refused : {SIZE_MAX, size_t{1}}) {
    bool failed = true;
    for (size_t allowed = 0; failed; ++allowed) {
      SCOPED_TRACE(allowed);
      ASSERT_LT(allowed, 100U);
      const auto fired = std::make_shared<Events>();
      const auto timer = std::make_shared<TsTimer>(1U, false);
      timer->Init([fired] { fired->Add(); });
      failed = Fails([&] { timer->Start(); }, allowed, refused);
      if (failed) {
        if (timer.use_count() > 1) timer->Stop();
        timer->Start();
      }
      EXPECT_TRUE(fired->Await(1));
      timer->Stop();
    }
  }
}

// ---- other objects ----

TEST(MemoryFaults, Constructors) {
  const auto newPool = [] {
    // Destroyed when allocations succeed again.
    const auto pool = std::make_shared<std::shared_ptr<ThreadPool>>();
    return Attempt{[pool] { *pool = std::make_shared<ThreadPool>(Long("pool"), 2U, 0U, 10U); }};
  };
  const auto newTimer = [] {
    const auto timer = std::make_shared<TsTimer>(1U, false);
    timer->Init([text = Long("owned")] {});
  };
  const auto newRecord = [] {
    auto info = std::make_shared<tarsio::ClientDeviceInfo>();
    static_cast<void>(tarsio::SysInfo::GetClientOsInfo(info));
  };
  FailEachAllocationOf({
      {"queue", [] { const auto queue = std::make_unique<BlockingQueue<std::string>>(1U); }},
      {"pool", newPool},
      {"timer", newTimer},
      {"system information", newRecord},
  });
}

}  // namespace
