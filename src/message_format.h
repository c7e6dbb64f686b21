// Formats log messages like printf, safely for every format.

#ifndef TARSIO_COMMON_SRC_MESSAGE_FORMAT_H_
#define TARSIO_COMMON_SRC_MESSAGE_FORMAT_H_

#include <array>
#include <cstdarg>
#include <cstddef>

namespace tarsio {

constexpr size_t kLongestMessage = 2047;  // in bytes, without the terminator
using MessageBuffer = std::array<char, kLongestMessage + 1>;

// Formats into `buffer` like vsnprintf(). Returns false, with unspecified contents in `buffer`, if
// the result is longer than kLongestMessage, if a wide character cannot be encoded, or if the
// format ends within a conversion or has an unsupported one. %n and numbered arguments (%1$d) are
// not supported.
//
// C libraries disagree in these cases, and some terminate the process for a wide field or for %n.
bool FormatLogMessage(MessageBuffer& buffer, const char* format, va_list args);

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_MESSAGE_FORMAT_H_
