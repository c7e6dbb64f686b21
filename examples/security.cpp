// Names and messages from outside: a check of a name, and a sink that escapes.

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>

#include "common/log.h"
#include "common/path.h"
#include "common/string_utils.h"

namespace {

//! [name]
// Whether `name` is one component that means the same on Windows and on Linux. Accepts UTF-8.
bool IsPlainName(const std::string& name) {
  const std::string forbidden = "\\/:*?\"<>|";
  const auto isForbidden = [&forbidden](char c) {
    return static_cast<unsigned char>(c) < 0x20 || forbidden.find(c) != std::string::npos;
  };
  if (name.empty() || name.size() > 255) return false;
  if (std::any_of(name.begin(), name.end(), isForbidden)) return false;
  if (name.back() == '.' || name.back() == ' ') return false;  // "." and ".." as well

  // Devices of Windows, with any extension.
  std::string base = tarsio::StringUtils::ToUpper(name.substr(0, name.find('.')));
  tarsio::StringUtils::Trim(base);
  for (const char* const device : {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"}) {
    if (base == device) return false;
  }
  if (base.size() > 3 && (base.compare(0, 3, "COM") == 0 || base.compare(0, 3, "LPT") == 0)) {
    const std::string number = base.substr(3);  // superscript digits count as well
    const bool isDigit = number.size() == 1 && number[0] >= '0' && number[0] <= '9';
    return !isDigit && number != "\xC2\xB9" && number != "\xC2\xB2" && number != "\xC2\xB3";
  }
  return true;
}
//! [name]

//! [sink]
class EscapingLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* line) override {
    std::string escaped;
    for (const char* c = line; *c != '\0'; ++c) {
      const auto byte = static_cast<unsigned char>(*c);
      const bool isControl = byte < 0x20 || byte == 0x7F;
      if (isControl || byte == '\\') {
        const char digits[] = "0123456789abcdef";
        escaped += {'\\', 'x', digits[byte >> 4], digits[byte & 0x0F]};
      } else {
        escaped += *c;
      }
    }
    Logger::DoOutput(escaped.substr(escaped.find("][") + 1).c_str());  // without the time
  }
};
//! [sink]

}  // namespace

int main() {
  tarsio::Log::GetInstance().SetLogger(std::make_unique<EscapingLogger>());
  for (const char* const name : {"report.txt", "..", "a/b", "a\\b", "C:x", "nul.txt", "com7",
                                 "company", "name.", "x\ny", "\xC3\xA9"}) {
    if (IsPlainName(name)) {
      std::cout << "uploads/" << name << '\n';
    } else {
      TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "refused: %s", name);
    }
  }
  return 0;
}
