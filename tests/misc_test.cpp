#include "common/misc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/objects.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/gate.h"
#include "support/recording_logger.h"

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;
using tarsio::GetSupportedCiphersList;
using tarsio::GetTimeNowMsSinceEpoch;
using testing::Contains;
using testing::Each;
using testing::EndsWith;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

// ---- declarations ----

static_assert(std::is_same<decltype(GetSupportedCiphersList()), std::string>::value,
              "returns a new string");
static_assert(std::is_same<decltype(GetTimeNowMsSinceEpoch()), long long>::value,
              "signed, 64 bits wide");

// ---- the cipher policy ----

TEST(SupportedCiphers, Value) {
  const std::string ciphers = GetSupportedCiphersList();
  EXPECT_EQ(ciphers,
            "AESGCM:!RSA:!DHE:!MEDIUM:!aNULL:!eNULL:!EXPORT:!DES:!3DES:!MD5:!EXP:!PSK:!RC4:!SRP:"
            "!aECDH:!ADH:!CAMELLIA:!LOW");
  EXPECT_EQ(ciphers.size(), 109u);
  EXPECT_THAT(ciphers, StartsWith("AESGCM"));
  EXPECT_THAT(ciphers, EndsWith("!LOW"));
}

TEST(SupportedCiphers, FreshCopy) {
  std::string first = GetSupportedCiphersList();
  const std::string second = GetSupportedCiphersList();
  EXPECT_NE(first.data(), second.data());
  first[0] = 'x';
  first.resize(5);
  EXPECT_EQ(second.size(), 109u);
  EXPECT_EQ(GetSupportedCiphersList(), second);
}

TEST(SupportedCiphers, Threads) {
  const std::string expected = GetSupportedCiphersList();
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 1000; ++round) {
        if (GetSupportedCiphersList() != expected) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// ---- the policy in a TLS library ----

using ContextPtr = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using SslPtr = std::unique_ptr<SSL, decltype(&SSL_free)>;

// A cipher suite. Suites of TLS 1.3 are not selected by such a list, so all of these are older.
struct Suite {
  std::string name;
  std::string keyExchange;
  std::string authentication;
  std::string cipher;
  std::string digest;
  int bits;
};

std::ostream& operator<<(std::ostream& out, const Suite& suite) { return out << suite.name; }

std::string NameOf(int nid) { return nid == NID_undef ? "none" : ::OBJ_nid2sn(nid); }

std::vector<Suite> Suites(const STACK_OF(SSL_CIPHER) * ciphers) {
  std::vector<Suite> suites;
  for (int i = 0; i < sk_SSL_CIPHER_num(ciphers); ++i) {
    const SSL_CIPHER* const cipher = sk_SSL_CIPHER_value(ciphers, i);
    if (::SSL_CIPHER_get_version(cipher) == std::string("TLSv1.3")) continue;
    suites.push_back(
        {::SSL_CIPHER_get_name(cipher), NameOf(::SSL_CIPHER_get_kx_nid(cipher)),
         NameOf(::SSL_CIPHER_get_auth_nid(cipher)), NameOf(::SSL_CIPHER_get_cipher_nid(cipher)),
         NameOf(::SSL_CIPHER_get_digest_nid(cipher)), ::SSL_CIPHER_get_bits(cipher, nullptr)});
  }
  return suites;
}

// A TLS library without a security level, so that only the list decides.
class CipherPolicy : public testing::Test {
 protected:
  CipherPolicy() : context(::SSL_CTX_new(::TLS_method()), ::SSL_CTX_free) {
    ::SSL_CTX_set_security_level(context.get(), 0);
    ::SSL_CTX_set_min_proto_version(context.get(), 0);
    ::SSL_CTX_set_max_proto_version(context.get(), 0);
  }

  bool Accepts(const std::string& list) {
    return ::SSL_CTX_set_cipher_list(context.get(), list.c_str()) == 1;
  }

  std::vector<Suite> Chosen() { return Suites(::SSL_CTX_get_ciphers(context.get())); }

  // Returns the suites that a connection offers.
  std::vector<Suite> Offered() {
    const SslPtr ssl(::SSL_new(context.get()), ::SSL_free);
    STACK_OF(SSL_CIPHER)* const ciphers = ::SSL_get1_supported_ciphers(ssl.get());
    std::vector<Suite> suites = Suites(ciphers);
    sk_SSL_CIPHER_free(ciphers);
    return suites;
  }

  const ContextPtr context;
};

MATCHER(ExchangesKeysByEphemeralCurves, "") { return arg.keyExchange == "KxECDHE"; }
MATCHER(IsAesGcm, "") {
  return arg.cipher == "id-aes128-GCM" || arg.cipher == "id-aes192-GCM" ||
         arg.cipher == "id-aes256-GCM";
}
MATCHER(ExchangesKeysByRsa, "") { return arg.keyExchange == "KxRSA"; }
MATCHER(ExchangesKeysByFiniteFields, "") {
  return arg.keyExchange == "KxDHE" || arg.name.find("DHE-") == 0 || arg.name.find("DH-") == 0;
}
MATCHER(UsesASharedKeyOrPassword, "") {
  return arg.keyExchange.find("PSK") != std::string::npos || arg.keyExchange == "KxSRP";
}
MATCHER(IsAnonymous, "") { return arg.authentication == "AuthNULL"; }
MATCHER(EncryptsNothing, "") { return arg.cipher == "none" || arg.bits == 0; }
MATCHER(UsesMd5, "") { return arg.digest == "MD5"; }
MATCHER(IsWeak, "export, low and medium strength") {
  return arg.bits < 128 || arg.name.find("EXP") == 0 || arg.cipher.find("DES") == 0 ||
         arg.cipher.find("RC4") == 0;
}
MATCHER(UsesCamellia, "") { return arg.cipher.find("CAMELLIA") == 0; }

TEST_F(CipherPolicy, IsAccepted) { EXPECT_TRUE(Accepts(GetSupportedCiphersList())); }

TEST_F(CipherPolicy, Remaining) {
  ASSERT_TRUE(Accepts(GetSupportedCiphersList()));
  for (const std::vector<Suite>& suites : {Chosen(), Offered()}) {
    std::vector<std::string> names;
    for (const Suite& suite : suites) names.push_back(suite.name);
    EXPECT_THAT(names,
                IsSupersetOf({"ECDHE-ECDSA-AES256-GCM-SHA384", "ECDHE-RSA-AES256-GCM-SHA384",
                              "ECDHE-ECDSA-AES128-GCM-SHA256", "ECDHE-RSA-AES128-GCM-SHA256"}));
    EXPECT_THAT(suites, Each(ExchangesKeysByEphemeralCurves()));
    EXPECT_THAT(suites, Each(IsAesGcm()));
  }
}

TEST_F(CipherPolicy, Removed) {
  ASSERT_TRUE(Accepts(GetSupportedCiphersList()));
  for (const std::vector<Suite>& suites : {Chosen(), Offered()}) {
    ASSERT_THAT(suites, Not(IsEmpty()));
    EXPECT_THAT(suites, Each(Not(ExchangesKeysByRsa())));
    EXPECT_THAT(suites, Each(Not(ExchangesKeysByFiniteFields())));
    EXPECT_THAT(suites, Each(Not(UsesASharedKeyOrPassword())));
    EXPECT_THAT(suites, Each(Not(IsAnonymous())));
    EXPECT_THAT(suites, Each(Not(EncryptsNothing())));
    EXPECT_THAT(suites, Each(Not(UsesMd5())));
    EXPECT_THAT(suites, Each(Not(IsWeak())));
    EXPECT_THAT(suites, Each(Not(UsesCamellia())));
  }
}

// "Removed for good": a list appended to the policy cannot add a removed suite again.
TEST_F(CipherPolicy, Final) {
  ASSERT_TRUE(Accepts(GetSupportedCiphersList() + ":ALL:COMPLEMENTOFALL"));
  const std::vector<Suite> suites = Chosen();
  EXPECT_THAT(suites, Contains(Not(IsAesGcm()))) << "the appended list takes effect";
  EXPECT_THAT(suites, Each(Not(ExchangesKeysByRsa())));
  EXPECT_THAT(suites, Each(Not(ExchangesKeysByFiniteFields())));
  EXPECT_THAT(suites, Each(Not(UsesASharedKeyOrPassword())));
  EXPECT_THAT(suites, Each(Not(IsAnonymous())));
  EXPECT_THAT(suites, Each(Not(EncryptsNothing())));
  EXPECT_THAT(suites, Each(Not(UsesCamellia())));
}

// Proves that the checks above can fail: without the policy, the library offers most of it.
TEST_F(CipherPolicy, WithoutPolicy) {
  EXPECT_FALSE(Accepts("NOSUCHCIPHER"));
  ASSERT_TRUE(Accepts("ALL:COMPLEMENTOFALL"));
  const std::vector<Suite> suites = Chosen();
  EXPECT_THAT(suites, Contains(Not(IsAesGcm())));
  EXPECT_THAT(suites, Contains(ExchangesKeysByRsa()));
  EXPECT_THAT(suites, Contains(ExchangesKeysByFiniteFields()));
  EXPECT_THAT(suites, Contains(UsesASharedKeyOrPassword()));
  EXPECT_THAT(suites, Contains(IsAnonymous()));
  EXPECT_THAT(suites, Contains(EncryptsNothing()));
  EXPECT_THAT(suites, Contains(UsesCamellia()));
}

// ---- the clock ----

// The steady clock, truncated to milliseconds.
long long SteadyMs() {
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

TEST(MonotonicClock, Monotonic) {
  long long before = GetTimeNowMsSinceEpoch();
  for (int i = 0; i < 1000000; ++i) {
    const long long now = GetTimeNowMsSinceEpoch();
    ASSERT_LE(before, now);
    before = now;
  }
}

TEST(MonotonicClock, Threads) {
  std::atomic<long long> latest{GetTimeNowMsSinceEpoch()};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 50000; ++round) {
        long long seen = latest;
        const long long now = GetTimeNowMsSinceEpoch();
        if (now < seen) ++wrong;
        while (seen < now && !latest.compare_exchange_weak(seen, now)) {
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// Reads at all phases of a millisecond: a clock that rounds would be ahead of one that truncates.
TEST(MonotonicClock, Steady) {
  const auto end = steady_clock::now() + milliseconds(100);
  int ticks = 0;
  for (long long last = SteadyMs(); steady_clock::now() < end;) {
    const long long before = SteadyMs();
    const long long now = GetTimeNowMsSinceEpoch();
    const long long after = SteadyMs();
    ASSERT_LE(before, now);
    ASSERT_LE(now, after);
    if (now != last) ++ticks;
    last = now;
  }
  EXPECT_GT(ticks, 1);
}

// The epoch is about the system start, not 1970 (by design).
TEST(MonotonicClock, SinceBoot) {
  const long long now = GetTimeNowMsSinceEpoch();
  const long long wallClock =
      duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  constexpr long long kTenYears = 10LL * 365 * 24 * 3600 * 1000;
  EXPECT_GE(now, 0);
  EXPECT_LT(now, kTenYears);
  EXPECT_LT(now, wallClock - kTenYears);
}

TEST(MonotonicClock, Advances) {
  constexpr milliseconds kSleep{150};
  const auto earliest = steady_clock::now();
  const long long start = GetTimeNowMsSinceEpoch();
  const auto slept = steady_clock::now();
  std::this_thread::sleep_until(slept + kSleep);
  const auto woken = steady_clock::now();
  const long long end = GetTimeNowMsSinceEpoch();
  const auto latest = steady_clock::now();
  // Each reading is truncated, so the difference may be off by a millisecond.
  EXPECT_GE(end - start, duration_cast<milliseconds>(woken - slept).count() - 1);
  EXPECT_LE(end - start, duration_cast<milliseconds>(latest - earliest).count() + 1);
  EXPECT_GE(end - start, kSleep.count() - 1);
  EXPECT_LT(end - start, milliseconds(tarsio_test::kTestTimeout).count());
}

TEST(Misc, LogsNothing) {
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  GetSupportedCiphersList();
  GetTimeNowMsSinceEpoch();
  EXPECT_THAT(records->All(), IsEmpty());
}

}  // namespace
