#include <openssl/crypto.h>

#include <atomic>

#include "platform/platform.h"

namespace tarsio::platform {

namespace {

// NOLINTNEXTLINE(*-non-const-global-variables): set once, at the end of the process
std::atomic<bool> cleanedUp{false};

bool Prepare() {
  // The clean-up at exit would come before the statics that are older. It is not registered, unless
  // the host has used libcrypto first; then the library has to know when it has happened.
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
