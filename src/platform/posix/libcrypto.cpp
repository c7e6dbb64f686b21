#include <openssl/crypto.h>

#include <atomic>

#include "platform/platform.h"

namespace tarsio::platform {

namespace {

// NOLINTNEXTLINE(*-non-const-global-variables): set once, at process exit
std::atomic<bool> cleanedUp{false};

bool Prepare() {
  // libcrypto's cleanup would run at exit before the destructors of older statics, which may still
  // hash. So do not register it. If the host used libcrypto first, it is registered already, and
  // the library has to know when it has run.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  OPENSSL_atexit([] { cleanedUp = true; });
  return true;
}

}  // namespace

bool LibcryptoIsUsable() {
  static const bool prepared = Prepare();
  return prepared && !cleanedUp;
}

}  // namespace tarsio::platform
