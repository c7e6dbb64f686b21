#ifndef TARSIO_COMMON_MISC_H_
#define TARSIO_COMMON_MISC_H_

/// \file
/// The TLS cipher policy and the monotonic clock.

#include <string>

#include "common/export.h"

namespace tarsio {

/// The TLS cipher policy of secure connections, in OpenSSL's cipher-list syntax (see
/// openssl-ciphers(1)): AES-GCM suites with ephemeral elliptic-curve key exchange. To be handed
/// unchanged to a TLS library; this library does not read it.
///
/// Threads: may be called from any thread at once.
/// Throws:  nothing but memory exhaustion.
TARSIO_COMMON_API std::string GetSupportedCiphersList();

/// Whole milliseconds, the rest cut off, on the monotonic clock, for timeouts and durations: it
/// never goes back, whatever the wall clock does. They count from the clock's own epoch, about the
/// start of the system, not from 1970: never show them as a date, and never mix them with the
/// timers' wall clock.
///
/// Threads: may be called from any thread at once.
TARSIO_COMMON_API long long GetTimeNowMsSinceEpoch();

}  // namespace tarsio

#endif  // TARSIO_COMMON_MISC_H_
