#ifndef TARSIO_COMMON_EXPORT_H_
#define TARSIO_COMMON_EXPORT_H_

/// \file
/// Marks what the shared library exports, and what compilers check.

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

/// \def TARSIO_COMMON_LOCAL
/// Each module of the host has its own copy of an inline function. One that all modules shared
/// could not be unloaded on Linux, if the function has a static variable.
#ifdef _WIN32
#define TARSIO_COMMON_LOCAL
#else
#define TARSIO_COMMON_LOCAL __attribute__((visibility("hidden")))
#endif

/// \def TARSIO_COMMON_PRINTF
/// The compiler checks the arguments from `first` on against the printf format that is argument
/// `format`; 0 for a `va_list`. Arguments count from 1, and a member's `this` is one.
#if defined(__clang__)
#define TARSIO_COMMON_PRINTF(format, first) __attribute__((__format__(__printf__, format, first)))
#elif defined(__GNUC__)
#define TARSIO_COMMON_PRINTF(format, first) \
  __attribute__((__format__(__gnu_printf__, format, first)))
#else
#define TARSIO_COMMON_PRINTF(format, first)
#endif

/// \def TARSIO_COMMON_NODISCARD
/// `[[nodiscard]]` where the host's C++ has it: the result is the only sign of failure.
#if __cplusplus >= 201703L
#define TARSIO_COMMON_NODISCARD [[nodiscard]]
#else
#define TARSIO_COMMON_NODISCARD
#endif

#endif  // TARSIO_COMMON_EXPORT_H_
