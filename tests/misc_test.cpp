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

#include "support/recording_logger.h"

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;
using tarsio::GetSupportedCiphersList;
using tarsio::GetTimeNowMsSinceEpoch;
using testing::IsEmpty;
using testing::IsSupersetOf;

static_assert(std::is_same<decltype(GetSupportedCiphersList()), std::string>::value,
              "returns a new string");
static_assert(std::is_same<decltype(GetTimeNowMsSinceEpoch()), long long>::value,
              "signed, 64 bits wide");

TEST(Misc, LogsNothing) {
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  GetSupportedCiphersList();
  GetTimeNowMsSinceEpoch();
  EXPECT_THAT(records->All(), IsEmpty());
}

// The clock never goes back, from one thread to another either.
TEST(Misc, Threads) {
  const std::string ciphers = GetSupportedCiphersList();
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
        if (round % 50 == 0 && GetSupportedCiphersList() != ciphers) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// ---- the cipher policy ----

TEST(CipherPolicy, Value) {
  EXPECT_EQ(GetSupportedCiphersList(),
            "AESGCM:!RSA:!DHE:!MEDIUM:!aNULL:!eNULL:!EXPORT:!DES:!3DES:!MD5:!EXP:!PSK:!RC4:!SRP:"
            "!aECDH:!ADH:!CAMELLIA:!LOW");
}

using ContextPtr = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;
using SslPtr = std::unique_ptr<SSL, decltype(&SSL_free)>;

// A cipher suite. Suites of TLS 1.3 are not selected by such a list, so all of these are older.
struct Suite {
  std::string name;
  std::string keyExchange;
  std::string authentication;
  std::string cipher;
};

std::string NameOf(int nid) { return nid == NID_undef ? "none" : ::OBJ_nid2sn(nid); }

std::vector<Suite> Suites(const STACK_OF(SSL_CIPHER) * ciphers) {
  std::vector<Suite> suites;
  for (int i = 0; i < sk_SSL_CIPHER_num(ciphers); ++i) {
    const SSL_CIPHER* const cipher = sk_SSL_CIPHER_value(ciphers, i);
    if (::SSL_CIPHER_get_version(cipher) == std::string("TLSv1.3")) continue;
    suites.push_back({::SSL_CIPHER_get_name(cipher), NameOf(::SSL_CIPHER_get_kx_nid(cipher)),
                      NameOf(::SSL_CIPHER_get_auth_nid(cipher)),
                      NameOf(::SSL_CIPHER_get_cipher_nid(cipher))});
  }
  return suites;
}

// A TLS library without a security level, so that only the list decides.
class CipherPolicyTls : public testing::Test {
 protected:
  CipherPolicyTls() : context(::SSL_CTX_new(::TLS_method()), ::SSL_CTX_free) {
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

TEST_F(CipherPolicyTls, Remaining) {
  ASSERT_TRUE(Accepts(GetSupportedCiphersList()));
  for (const std::vector<Suite>& suites : {Chosen(), Offered()}) {
    std::vector<std::string> names;
    for (const Suite& suite : suites) {
      SCOPED_TRACE(suite.name);
      names.push_back(suite.name);
      EXPECT_EQ(suite.keyExchange, "KxECDHE");
      EXPECT_NE(suite.authentication, "AuthNULL");
      EXPECT_THAT(suite.cipher, testing::MatchesRegex("id-aes...-GCM"));
    }
    EXPECT_THAT(names,
                IsSupersetOf({"ECDHE-ECDSA-AES256-GCM-SHA384", "ECDHE-RSA-AES256-GCM-SHA384",
                              "ECDHE-ECDSA-AES128-GCM-SHA256", "ECDHE-RSA-AES128-GCM-SHA256"}));
  }
}

// "Removed for good": a list appended to the policy cannot add a removed suite again.
TEST_F(CipherPolicyTls, Removed) {
  const struct {
    const char* name;
    bool (*includes)(const Suite& suite);
  } kinds[] = {
      {"keys by RSA", [](const Suite& suite) { return suite.keyExchange == "KxRSA"; }},
      {"keys by finite fields",
       [](const Suite& suite) {
         return suite.keyExchange == "KxDHE" || suite.name.find("DHE-") == 0 ||
                suite.name.find("DH-") == 0;
       }},
      {"a shared key or password",
       [](const Suite& suite) {
         return suite.keyExchange.find("PSK") != std::string::npos || suite.keyExchange == "KxSRP";
       }},
      {"anonymous", [](const Suite& suite) { return suite.authentication == "AuthNULL"; }},
      {"not encrypted", [](const Suite& suite) { return suite.cipher == "none"; }},
      {"Camellia", [](const Suite& suite) { return suite.cipher.find("CAMELLIA") == 0; }},
  };
  EXPECT_FALSE(Accepts("NOSUCHCIPHER"));
  ASSERT_TRUE(Accepts("ALL:COMPLEMENTOFALL"));
  const std::vector<Suite> all = Chosen();
  ASSERT_TRUE(Accepts(GetSupportedCiphersList() + ":ALL:COMPLEMENTOFALL"));
  const std::vector<Suite> left = Chosen();
  for (const auto& kind : kinds) {
    SCOPED_TRACE(kind.name);
    EXPECT_TRUE(std::any_of(all.begin(), all.end(), kind.includes)) << "else this proves nothing";
    EXPECT_TRUE(std::none_of(left.begin(), left.end(), kind.includes));
  }
  EXPECT_TRUE(std::any_of(left.begin(), left.end(), [](const Suite& suite) {
    return suite.cipher.find("GCM") == std::string::npos;
  })) << "the appended list takes effect";
}

// ---- the clock ----

// The steady clock, truncated to milliseconds.
long long SteadyMs() {
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
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

}  // namespace
