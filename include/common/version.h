#ifndef TARSIO_COMMON_VERSION_H_
#define TARSIO_COMMON_VERSION_H_

/// \file
/// The version of these headers, for the preprocessor.

/// Incremented when something is removed or changed incompatibly.
#define TARSIO_COMMON_VERSION_MAJOR 1
/// Incremented when something is added.
#define TARSIO_COMMON_VERSION_MINOR 0
/// Incremented when bugs are fixed and nothing is added.
#define TARSIO_COMMON_VERSION_PATCH 0

/// The version as one number, for comparisons: 10203 is 1.2.3.
#define TARSIO_COMMON_VERSION                                                \
  (TARSIO_COMMON_VERSION_MAJOR * 10000 + TARSIO_COMMON_VERSION_MINOR * 100 + \
   TARSIO_COMMON_VERSION_PATCH)

#endif  // TARSIO_COMMON_VERSION_H_
