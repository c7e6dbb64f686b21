#include "plugin.h"

// Exported, since the plugin has no export list.
extern "C" {

component::TsTimer* NewTimer(unsigned long long timeoutMs, bool repeating) {
  return new component::TsTimer(timeoutMs, repeating);
}

tarsio::ThreadPool* NewPool() { return new tarsio::ThreadPool("plugin", 2, 0, 8); }

void StartTimer(component::TsTimer* timer, const std::function<void()>& action) {
  timer->Init(action);
  timer->Start();
}

void SubmitTask(tarsio::ThreadPool* pool, const std::function<void()>& task) {
  pool->SubmitTask(std::function<void()>(task));
}

}  // extern "C"
