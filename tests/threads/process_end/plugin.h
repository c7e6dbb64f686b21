// The plugin's exports. They only forward to the library, so that a host can use the library
// without linking to it. All callbacks are the host's code.

#ifndef TARSIO_COMMON_TESTS_PROCESS_END_PLUGIN_H_
#define TARSIO_COMMON_TESTS_PROCESS_END_PLUGIN_H_

#include <functional>

#include "common/thread_pool.h"
#include "common/timer.h"

namespace tarsio_test {

// Neither has an owner yet.
using NewTimer = component::TsTimer*(unsigned long long timeoutMs, bool repeating);
using NewPool = tarsio::ThreadPool*();
// The object must be owned by a shared pointer.
using StartTimer = void(component::TsTimer* timer, const std::function<void()>& action);
using SubmitTask = void(tarsio::ThreadPool* pool, const std::function<void()>& task);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_PROCESS_END_PLUGIN_H_
