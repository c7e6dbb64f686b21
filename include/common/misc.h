#ifndef TARSIO_COMMON_MISC_H_
#define TARSIO_COMMON_MISC_H_

/// \file
/// The TLS cipher policy and the monotonic clock.

#include <string>

#include "common/export.h"

namespace tarsio {

/// Returns the TLS cipher policy in OpenSSL's cipher-list syntax (see openssl-ciphers(1)): AES-GCM
/// suites with ephemeral elliptic-curve key exchange, for TLS 1.2. Pass it to the TLS library
/// unchanged. TLS 1.3 suites are configured separately.
///
/// Threads: may be called concurrently.
/// Throws:  `std::bad_alloc`.
TARSIO_COMMON_API std::string GetSupportedCiphersList();

/// Returns the monotonic clock in whole milliseconds, rounded down. It never goes back, even if the
/// wall clock does; use it for timeouts and durations. Its epoch is about the start of the system,
/// not 1970 (by design): do not print it as a date or compare it with the timers' wall clock.
///
/// Threads: may be called concurrently.
TARSIO_COMMON_API long long GetTimeNowMsSinceEpoch();

}  // namespace tarsio

#endif  // TARSIO_COMMON_MISC_H_
