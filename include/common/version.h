#ifndef TARSIO_COMMON_VERSION_H_
#define TARSIO_COMMON_VERSION_H_

/// \file
/// The version of these headers, for the preprocessor.

#define TARSIO_COMMON_VERSION_MAJOR 1  ///< Changes when hosts must be changed.
#define TARSIO_COMMON_VERSION_MINOR 0  ///< Changes when something is added.
#define TARSIO_COMMON_VERSION_PATCH 0  ///< Changes when something is repaired.

/// One number to compare: 10203 is 1.2.3.
#define TARSIO_COMMON_VERSION                                                \
  (TARSIO_COMMON_VERSION_MAJOR * 10000 + TARSIO_COMMON_VERSION_MINOR * 100 + \
   TARSIO_COMMON_VERSION_PATCH)

#endif  // TARSIO_COMMON_VERSION_H_
