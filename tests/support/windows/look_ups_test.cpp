// When and what the library looks up in the system's modules. The library is compiled into this
// program, together with a GetProcAddress() that counts its calls.

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/sys_info.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/gate.h"
#include "support/scoped_directory.h"

namespace {

using tarsio_test::Gate;
using tarsio_test::ScopedDirectory;

std::atomic<int> lookUps{0};
DWORD sizeField = 1;  // of the record of the last call of RtlGetVersion
LONG status = 0;      // which that function returns

LONG WINAPI Version(OSVERSIONINFOW* record) {
  sizeField = record->dwOSVersionInfoSize;
  record->dwMajorVersion = 6;
  record->dwMinorVersion = 1;
  return status;
}

}  // namespace

// The function is called by a pointer, which the linker's --wrap option replaces.
extern "C" {

extern FARPROC(WINAPI* __real___imp_GetProcAddress)(HMODULE module, LPCSTR name);
static FARPROC WINAPI WrappedGetProcAddress(HMODULE module, LPCSTR name) {
  ++lookUps;
  if (std::strcmp(name, "RtlGetVersion") == 0)
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(Version));
  return __real___imp_GetProcAddress(module, name);
}
FARPROC(WINAPI* __wrap___imp_GetProcAddress)(HMODULE module, LPCSTR name) = WrappedGetProcAddress;

}  // extern "C"

namespace {

// A look-up blocks while another thread loads a module, and that module's initializers may wait for
// a lock of the library.
TEST(LookUps, AtLoadTime) {
  EXPECT_GE(lookUps, 3) << "the wrapper was not called";
  lookUps = 0;
  auto info = std::make_shared<tarsio::ClientDeviceInfo>();
  EXPECT_TRUE(tarsio::SysInfo::GetClientOsInfo(info));
  tarsio::CharsetCvt::U8ToMb("abc");
  tarsio::StringUtils::GetHashText("abc", 3);
  const ScopedDirectory directory;
  EXPECT_TRUE(tarsio::MakeDirs(tarsio::Path(directory.Text("a/b"))));
  EXPECT_EQ(tarsio::FileUtils::WriteFile("abc", directory.Text("a/file"), 0x20), 0);
  std::string content;
  EXPECT_EQ(tarsio::FileUtils::GetFileContent(directory.Text("a/file"), content), 0);
  TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "a line");
  Gate ran;
  const auto pool = std::make_shared<tarsio::ThreadPool>("pool", 1, 0, 1);
  pool->SubmitTask([&] { ran.Open(); });
  EXPECT_TRUE(ran.WaitFor());
  Gate fired;
  const auto timer = std::make_shared<component::TsTimer>(1, false);
  timer->Init([&] { fired.Open(); });
  timer->Start();
  EXPECT_TRUE(fired.WaitFor());
  EXPECT_EQ(lookUps, 0);
}

TEST(LookUps, Version) {
  auto info = std::make_shared<tarsio::ClientDeviceInfo>();
  ASSERT_TRUE(tarsio::SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info->osVersion, "6.1");
  EXPECT_EQ(sizeField, 0U) << "the record's size is not set";
  // Errors, warnings and information: all values but zero.
  for (const DWORD failure : {0xC0000001U, 0x80000006U, 0x40000000U, 1U}) {
    status = static_cast<LONG>(failure);
    EXPECT_FALSE(tarsio::SysInfo::GetClientOsInfo(info)) << failure;
  }
  status = 0;
}

}  // namespace
