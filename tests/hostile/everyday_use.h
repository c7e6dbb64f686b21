// Uses a little of everything in the library.

#ifndef TARSIO_COMMON_TESTS_HOSTILE_EVERYDAY_USE_H_
#define TARSIO_COMMON_TESTS_HOSTILE_EVERYDAY_USE_H_

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

namespace tarsio_test {

// Works in the current directory. Returns whether everything succeeded.
inline bool EverydayUse() {
  using tarsio::FileUtils;
  const auto done = std::make_shared<Gate>();
  const auto fired = std::make_shared<Gate>();
  const auto pool = std::make_shared<tarsio::ThreadPool>("everyday", 1, 0, 1);
  pool->SubmitTask([done] { done->Open(); });
  const auto timer = std::make_shared<component::TsTimer>(1, false);
  timer->Init([fired] { fired->Open(); });
  timer->Start();
  TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%s", "everyday use");
  std::string content;
  bool works = FileUtils::WriteFile("content", "./everyday", 0) == 0 &&
               FileUtils::GetFileContent("./everyday", content) == 0 && content == "content" &&
               FileUtils::RemoveFile("everyday");
  works = works && tarsio::StringUtils::GetHashText("abc", 3).rfind("ba7816bf", 0) == 0;
  works = works && !tarsio::Path::Getcwd().Empty();
  works = works && tarsio::CharsetCvt::GetEnv(L"TARSIO_NO_SUCH_VARIABLE", "").empty();
  return works && done->WaitFor() && fired->WaitFor();
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_HOSTILE_EVERYDAY_USE_H_
