// The separators and prefixes of Windows paths.

#ifndef TARSIO_COMMON_SRC_PATH_SYNTAX_H_
#define TARSIO_COMMON_SRC_PATH_SYNTAX_H_

#include <string_view>

namespace tarsio {

constexpr std::string_view kLongPrefix = R"(\\?\)";
constexpr std::string_view kLongSharePrefix = R"(\\?\UNC\)";
constexpr std::string_view kSharePrefix = R"(\\)";
constexpr std::string_view kShareAfterLongPrefix = R"(UNC\)";

constexpr bool IsSeparator(char c) { return c == '/' || c == '\\'; }

}  // namespace tarsio

#endif  // TARSIO_COMMON_SRC_PATH_SYNTAX_H_
