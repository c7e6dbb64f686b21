// Must not compile with -Werror=format: each call has one wrong argument.

#include "common/log.h"

#if defined(CALL_MACRO)
void Call() { TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%s", 5); }
#elif defined(CALL_DOLOG)
void Call() {
  tarsio::Log::GetInstance().DoLog(tarsio::LOG_LEVEL_ERROR, "file", 1, "function", "%d", "text");
}
#elif defined(CALL_TSLOG)
void Call() {
  tarsio::TsLog(tarsio::LOG_LEVEL_ERROR, nullptr, nullptr, "file", 1, "function", "%zu %d", 1);
}
#elif defined(CALL_VFORMAT)
void Call(tarsio::Logger& sink, std::string& line, va_list arguments) {
  sink.VFormat(tarsio::LOG_LEVEL_ERROR, line, "file", 1, "function", "%", arguments);
}
#else
void Call() { TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%zu %lld %s", sizeof(int), 5LL, "text"); }
#endif
