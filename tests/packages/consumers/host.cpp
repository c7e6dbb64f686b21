// A consumer of the library outside its tree, in plain C++11: includes every public header after
// headers that define macros with common names, and calls each family once.

#if __has_include(<windows.h>)
#include <windows.h>
#endif
#if __has_include(<syslog.h>)
#include <syslog.h>
#endif

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

#include "common/blocking_queue.h"
#include "common/charset_cvt.h"
#include "common/export.h"
#include "common/file_utils.h"
#include "common/latch.h"
#include "common/log.h"
#include "common/misc.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/sys_info.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "common/ts_string.h"

namespace {

using tarsio::FileUtils;
using tarsio::Path;

int checks = 0;
int failures = 0;

void Check(bool right, const char* what) {
  ++checks;
  if (right) return;
  ++failures;
  std::printf("failed: %s\n", what);
}

std::string lastLine;

// Called by the library, with memory that the library allocated.
class LastLine : public tarsio::Logger {
 public:
  void DoOutput(const char* line) override { lastLine = line; }
};

void CheckValues() {
  tarsio::Log::GetInstance().SetLogger(std::unique_ptr<tarsio::Logger>(new LastLine));
  TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%d of %s", 1, "two");
  Check(tarsio::StringUtils::EndsWith(lastLine, "1 of two"), "the log");
  Check(tarsio::CharsetCvt::U8ToW("abc") == L"abc", "converting a string");
  Check(tarsio::StringUtils::GetHashText("abc", 3).size() == 64, "hashing a string");
  const tarsio::TsString text("abc");
  Check(text.Length() == 3 && text == tarsio::TsString("abc"), "boundary string");
  auto info = std::make_shared<tarsio::ClientDeviceInfo>();
  Check(tarsio::SysInfo::GetClientOsInfo(info) && !info->osVersion.empty(), "the system");
  Check(tarsio::GetTimeNowMsSinceEpoch() >= 0, "the clock");
}

void CheckFiles() {
  const Path path = Path::Getcwd() / Path("host.txt");
  std::string content;
  Check(FileUtils::WriteFile("written", path.Str(), 0x10) == tarsio::FILE_OPT_SUCCESS, "writing");
  const int got = FileUtils::GetFileContent(path.Str(), content);
  Check(got == tarsio::FILE_OPT_SUCCESS && content == "written", "reading");
  Check(path.IsFile() && FileUtils::RemoveFile(path.Str()), "removing");
}

void CheckThreads() {
  tarsio::BlockingQueue<std::string> queue(1);
  std::string item;
  Check(queue.Push("item", 0) && !queue.Push("surplus", -1), "the queue's capacity");
  Check(queue.Pop(item, 0) && item == "item", "the queue");

  std::atomic<int> done(0);
  const auto pool = std::make_shared<tarsio::ThreadPool>("pool", 2U, 0U, 8U);
  for (int i = 0; i < 8; ++i) {
    pool->SubmitTask([&done] { ++done; });
  }
  pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_DRAIN);
  Check(done == 8, "the pool");

  tarsio::CountDownLatch fired(1);
  const auto timer = std::make_shared<component::TsTimer>(1U, false);
  timer->Init([&fired] { fired.CountDown(); });
  timer->Start();
  fired.Wait(10000);
  Check(fired.GetCount() == 0, "the timer");
}

}  // namespace

int main() {
  CheckValues();
  CheckFiles();
  CheckThreads();
  std::printf("%d checks, %d wrong\n", checks, failures);
  return failures == 0 && checks == 13 ? 0 : 1;
}
