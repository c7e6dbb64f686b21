// Untrusted names and messages: a check for file names, and a sink that escapes.

//! [includes]
#include <iostream>
#include <memory>
#include <string>

#include "common/log.h"
//! [includes]

namespace {

//! [name]
// Returns true if `name` is a single component with the same meaning on Windows and Linux. Accepts
// only ASCII letters, digits and a few other characters. Independent of the locale.
bool IsPlainName(const std::string& name) {
  constexpr char kAllowed[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_. ";
  if (name.empty() || name.size() > 255) return false;
  if (name.find_first_not_of(kAllowed) != std::string::npos) return false;
  if (name.back() == '.' || name.back() == ' ') return false;  // "." and ".." as well

  // Names of Windows devices, with any extension.
  std::string base = name.substr(0, name.find('.'));
  base.erase(base.find_last_not_of(' ') + 1);
  for (char& c : base) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  for (const char* const device : {"CON", "PRN", "AUX", "NUL"}) {
    if (base == device) return false;
  }
  const bool isPort = base.compare(0, 3, "COM") == 0 || base.compare(0, 3, "LPT") == 0;
  return !isPort || base.size() != 4 || base[3] < '0' || base[3] > '9';
}
//! [name]

//! [sink]
class EscapingLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* line) override {
    std::string escaped;
    for (const char* c = line; *c != '\0'; ++c) {
      const auto byte = static_cast<unsigned char>(*c);
      const bool isPrinted = byte >= 0x20 && byte < 0x7F;  // non-ASCII includes control characters
      if (!isPrinted || byte == '\\') {
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
