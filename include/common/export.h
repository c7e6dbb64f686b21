#ifndef TARSIO_COMMON_EXPORT_H_
#define TARSIO_COMMON_EXPORT_H_

/// \file
/// Marks what the shared library exports.

/// \def TARSIO_COMMON_API
/// Stands before whatever the shared library exports. A host that links the static library defines
/// `TARSIO_COMMON_STATIC`, which empties it; the CMake target `tarsio::common` does so by itself.

#ifdef _GLIBCXX_DEBUG
#error "common/: _GLIBCXX_DEBUG changes the size of standard containers; compile without it"
#endif

#if defined(TARSIO_COMMON_STATIC)
#define TARSIO_COMMON_API
#elif !defined(_WIN32)
#define TARSIO_COMMON_API __attribute__((visibility("default")))
#elif defined(TARSIO_COMMON_BUILDING)
#define TARSIO_COMMON_API __declspec(dllexport)
#else
#define TARSIO_COMMON_API __declspec(dllimport)
#endif

#endif  // TARSIO_COMMON_EXPORT_H_
