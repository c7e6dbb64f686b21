// What the plugin with statics exports.

#ifndef TARSIO_COMMON_TESTS_PROCESS_END_STATICS_H_
#define TARSIO_COMMON_TESTS_PROCESS_END_STATICS_H_

namespace tarsio_test {

// Puts the library's threads to work. The plugin's static goes on using them in its destructor.
using Begin = void(const char* mode, unsigned long long seed);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_PROCESS_END_STATICS_H_
