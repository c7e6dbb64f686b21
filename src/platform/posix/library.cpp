#include "platform/platform.h"

namespace tarsio::platform {

// The shared object is linked with -z nodelete, so it stays loaded anyway.
void PinLibrary() {}

}  // namespace tarsio::platform
