#include "support/environment.h"

#include <cstdlib>

namespace tarsio_test {

std::optional<std::string> Variable(const std::string& name) {
  const char* const value = std::getenv(name.c_str());
  if (value == nullptr) return std::nullopt;
  return value;
}

void SetVariable(const std::string& name, const std::string& value) {
  ::setenv(name.c_str(), value.c_str(), 1);
}

void SetVariableWithBrokenCharacter(const std::string& name) {
  SetVariable(name,
              "a\xFF"
              "b");
}

void UnsetVariable(const std::string& name) { ::unsetenv(name.c_str()); }

}  // namespace tarsio_test
