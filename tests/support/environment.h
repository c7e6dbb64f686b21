// The environment variables of this process, changed past the library. All text is UTF-8.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_ENVIRONMENT_H_
#define TARSIO_COMMON_TESTS_SUPPORT_ENVIRONMENT_H_

#include <optional>
#include <string>
#include <utility>

namespace tarsio_test {

// Nothing if there is no such variable.
std::optional<std::string> Variable(const std::string& name);
void SetVariable(const std::string& name, const std::string& value);
// The value is "a", something that is no character (a lone surrogate, or a byte that no UTF-8 text
// holds), and "b".
void SetVariableWithBrokenCharacter(const std::string& name);
void UnsetVariable(const std::string& name);

// Gives a variable a value, or none, as long as the object lives.
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
