// Access to this process's environment variables that bypasses the library. All strings are UTF-8.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_ENVIRONMENT_H_
#define TARSIO_COMMON_TESTS_SUPPORT_ENVIRONMENT_H_

#include <optional>
#include <string>
#include <utility>

namespace tarsio_test {

// Returns nothing if the variable is not set.
std::optional<std::string> Variable(const std::string& name);
void SetVariable(const std::string& name, const std::string& value);
// Sets the value to "a", an invalid character (a lone surrogate or an invalid byte), and "b".
void SetVariableWithBrokenCharacter(const std::string& name);
void UnsetVariable(const std::string& name);

// Sets or removes a variable in its scope.
class ScopedVariable {
 public:
  ScopedVariable(std::string variable, const std::optional<std::string>& value)
      : name(std::move(variable)), before(Variable(name)) {
    Put(value);
  }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;
  ~ScopedVariable() { Put(before); }

 private:
  void Put(const std::optional<std::string>& value) const {
    if (value.has_value()) {
      SetVariable(name, *value);
    } else {
      UnsetVariable(name);
    }
  }

  const std::string name;
  const std::optional<std::string> before;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_ENVIRONMENT_H_
