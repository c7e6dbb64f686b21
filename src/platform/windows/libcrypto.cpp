#include "platform/platform.h"

namespace tarsio::platform {

// The parts of it that are linked in have no state to clean up.
bool LibcryptoIsUsable() { return true; }

}  // namespace tarsio::platform
