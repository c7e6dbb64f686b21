// The version in the header must match the project's version, which the build defines.

#include "common/version.h"

static_assert(TARSIO_COMMON_VERSION_MAJOR == PROJECT_MAJOR &&
                  TARSIO_COMMON_VERSION_MINOR == PROJECT_MINOR &&
                  TARSIO_COMMON_VERSION_PATCH == PROJECT_PATCH,
              "common/version.h names another version than the project");
static_assert(TARSIO_COMMON_VERSION == PROJECT_MAJOR * 10000 + PROJECT_MINOR * 100 + PROJECT_PATCH,
              "");
