#include "platform/platform.h"

namespace tarsio::platform {

// What is linked of it has no state that could be cleaned up.
bool LibcryptoIsUsable() { return true; }

}  // namespace tarsio::platform
