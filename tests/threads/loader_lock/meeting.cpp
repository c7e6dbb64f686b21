#include "meeting.h"

#include <cstdio>

#include "common/log.h"
#include "common/sys_info.h"
#include "common/timer.h"

namespace tarsio_test {

Meeting& TheMeeting() {
  static auto* const meeting = new Meeting;
  return *meeting;
}

void Use(const char* who) {
  Meeting& meeting = TheMeeting();
  const auto say = [&](const char* what) {
    std::printf("%s: %s %s\n", meeting.mode.c_str(), who, what);
    std::fflush(stdout);
  };
  say("begins");
  if (meeting.mode == "timer") {
    // The manager owns it; it fires until the process ends.
    const auto timer = std::make_shared<component::TsTimer>(1, true);
    timer->Init([&meeting] { meeting.used.Add(); });
    timer->Start();
  } else if (meeting.mode == "log") {
    TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%s", who);
    meeting.used.Add();
  } else if (meeting.mode == "task") {
    meeting.pool->SubmitTask([&meeting] { meeting.used.Add(); });
  } else if (meeting.mode == "system_information") {
    auto info = std::make_shared<tarsio::ClientDeviceInfo>();
    if (tarsio::SysInfo().GetClientOsInfo(info)) meeting.used.Add();
  }
  say("returns");
}

}  // namespace tarsio_test
