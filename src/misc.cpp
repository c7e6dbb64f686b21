#include "common/misc.h"

#include <chrono>

namespace tarsio {

std::string GetSupportedCiphersList() {
  return "AESGCM:!RSA:!DHE:!MEDIUM:!aNULL:!eNULL:!EXPORT:!DES:!3DES:!MD5:!EXP:!PSK:!RC4:!SRP:"
         "!aECDH:!ADH:!CAMELLIA:!LOW";
}

long long GetTimeNowMsSinceEpoch() {
  const auto sinceEpoch = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count();
}

}  // namespace tarsio
