// Must not compile with -Werror=unused-result from C++17 on.

#include "common/blocking_queue.h"
#include "common/file_utils.h"
#include "common/path.h"
#include "common/sys_info.h"

void Call(tarsio::BlockingQueue<int>& queue, std::shared_ptr<tarsio::ClientDeviceInfo>& info,
          const tarsio::Path& path, int& item, std::string& content) {
#if defined(CALL_PUSH)
  queue.Push(item, 0);
#elif defined(CALL_POP)
  queue.Pop(item, 0);
#elif defined(CALL_INFO)
  tarsio::SysInfo::GetClientOsInfo(info);
#elif defined(CALL_READ)
  tarsio::FileUtils::GetFileContent("f", content);
#elif defined(CALL_WRITE)
  tarsio::FileUtils::WriteFile(content, "f", 0);
#elif defined(CALL_MAKEDIRS)
  tarsio::MakeDirs(path);
#elif defined(CALL_RESOLVE)
  tarsio::PathResolver().Resolve(path);
#else
  static_cast<void>(queue.Push(item, 0) && queue.Pop(item, 0) && path.Exists());
  static_cast<void>(tarsio::SysInfo::GetClientOsInfo(info));
  static_cast<void>(tarsio::FileUtils::GetFileContent("f", content));
#endif
}
