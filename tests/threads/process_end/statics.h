// The export of the plugin with statics.

#ifndef TARSIO_COMMON_TESTS_PROCESS_END_STATICS_H_
#define TARSIO_COMMON_TESTS_PROCESS_END_STATICS_H_

namespace tarsio_test {

// Starts the library's threads. The destructor of the plugin's static goes on using them.
using Begin = void(const char* mode, unsigned long long seed);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_PROCESS_END_STATICS_H_
