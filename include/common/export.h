#ifndef TARSIO_COMMON_EXPORT_H_
#define TARSIO_COMMON_EXPORT_H_

/// \file
/// Macros for exports and compiler checks.

/// \def TARSIO_COMMON_API
/// Marks a declaration that the shared library exports. A host that links the static library must
/// define `TARSIO_COMMON_STATIC`, which makes this macro empty; the CMake target `tarsio::common`
/// does that.

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
/// Gives each module of the host its own copy of an inline function. On Linux, a module that shares
/// an inline function with a static variable could not be unloaded.
#ifdef _WIN32
#define TARSIO_COMMON_LOCAL
#else
#define TARSIO_COMMON_LOCAL __attribute__((visibility("hidden")))
#endif

/// \def TARSIO_COMMON_PRINTF
/// Makes the compiler check the arguments from position `first` against the printf format at
/// position `format`. `first` is 0 for a `va_list`. Positions count from 1; `this` of a member
/// function counts.
#if defined(__clang__)
#define TARSIO_COMMON_PRINTF(format, first) __attribute__((__format__(__printf__, format, first)))
#elif defined(__GNUC__)
#define TARSIO_COMMON_PRINTF(format, first) \
  __attribute__((__format__(__gnu_printf__, format, first)))
#else
#define TARSIO_COMMON_PRINTF(format, first)
#endif

/// \def TARSIO_COMMON_NODISCARD
/// `[[nodiscard]]` from C++17 on, for results that are the only sign of a failure.
#if __cplusplus >= 201703L
#define TARSIO_COMMON_NODISCARD [[nodiscard]]
#else
#define TARSIO_COMMON_NODISCARD
#endif

#endif  // TARSIO_COMMON_EXPORT_H_
