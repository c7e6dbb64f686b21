#include "platform/platform.h"

namespace tarsio::platform {

// The shared object is linked with -z nodelete, so it stays loaded anyway.
void PinLibrary() {}

// The other threads run on while the statics are destroyed.
bool ProcessIsEnding() { return false; }

}  // namespace tarsio::platform
