// What the plugin exports. It only passes calls on to the library that it is linked to, and so that
// a host can use that without being linked to it; whatever is called back is the host's own code.

#ifndef TARSIO_COMMON_TESTS_PROCESS_END_PLUGIN_H_
#define TARSIO_COMMON_TESTS_PROCESS_END_PLUGIN_H_

#include <functional>

#include "common/thread_pool.h"
#include "common/timer.h"

namespace tarsio_test {

// Neither has an owner yet.
using NewTimer = component::TsTimer*(unsigned long long timeoutMs, bool repeating);
using NewPool = tarsio::ThreadPool*();
// Both belong to a shared pointer by then.
using StartTimer = void(component::TsTimer* timer, const std::function<void()>& action);
using SubmitTask = void(tarsio::ThreadPool* pool, const std::function<void()>& task);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_PROCESS_END_PLUGIN_H_
