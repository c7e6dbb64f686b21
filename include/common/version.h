#ifndef TARSIO_COMMON_VERSION_H_
#define TARSIO_COMMON_VERSION_H_

/// \file
/// The version of these headers, for the preprocessor.

/// Rises when something is removed or changes.
#define TARSIO_COMMON_VERSION_MAJOR 1
/// Rises when something is added.
#define TARSIO_COMMON_VERSION_MINOR 0
/// Rises when only faults are mended.
#define TARSIO_COMMON_VERSION_PATCH 0

/// One number to compare: 10203 is 1.2.3.
#define TARSIO_COMMON_VERSION                                                \
  (TARSIO_COMMON_VERSION_MAJOR * 10000 + TARSIO_COMMON_VERSION_MINOR * 100 + \
   TARSIO_COMMON_VERSION_PATCH)

#endif  // TARSIO_COMMON_VERSION_H_
