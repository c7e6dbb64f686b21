#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/platform.h"

namespace tarsio::platform {

std::wstring Environment(const std::wstring& name, size_t capacity) {
  const std::string narrow = Narrow(name);
  // getenv("A=B") would match a variable A whose value begins with "B=".
  if (std::strchr(narrow.c_str(), '=') != nullptr) return {};
  // NOLINTNEXTLINE(concurrency-mt-unsafe): safe as long as the host does not change the environment
  const char* const value = std::getenv(narrow.c_str());
  if (value == nullptr) return {};
  std::wstring wide = Widen(value);
  return wide.size() < capacity ? wide : std::wstring();
}

std::optional<Version> RunningVersion() {
  struct utsname system {};
  if (::uname(&system) != 0) return {};
  char* end = nullptr;
  const unsigned long major = std::strtoul(system.release, &end, 10);
  if (end == system.release || *end != '.') return {};
  const char* const minorText = end + 1;
  const unsigned long minor = std::strtoul(minorText, &end, 10);
  if (end == minorText) return {};
  return Version{static_cast<uint32_t>(major), static_cast<uint32_t>(minor)};
}

}  // namespace tarsio::platform
