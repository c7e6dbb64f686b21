#include "common/misc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/objects.h>
#include <openssl/ssl.h>

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
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

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

// The suites that a TLS library without a security level selects by `list`, such as
// "ECDHE-RSA-AES128-GCM-SHA256 KxECDHE AuthRSA id-aes128-GCM". Suites of TLS 1.3 are not selected
// by such a list, so all of these are older.
std::vector<std::string> Suites(const std::string& list) {
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(::SSL_CTX_new(::TLS_method()),
                                                                  ::SSL_CTX_free);
  ::SSL_CTX_set_security_level(context.get(), 0);
  ::SSL_CTX_set_min_proto_version(context.get(), 0);
  std::vector<std::string> suites;
  if (::SSL_CTX_set_cipher_list(context.get(), list.c_str()) != 1) return suites;
  const STACK_OF(SSL_CIPHER)* const ciphers = ::SSL_CTX_get_ciphers(context.get());
  for (int i = 0; i < sk_SSL_CIPHER_num(ciphers); ++i) {
    const SSL_CIPHER* const cipher = sk_SSL_CIPHER_value(ciphers, i);
    if (::SSL_CIPHER_get_version(cipher) == std::string("TLSv1.3")) continue;
    std::string suite = ::SSL_CIPHER_get_name(cipher);
    for (const auto part :
         {::SSL_CIPHER_get_kx_nid, ::SSL_CIPHER_get_auth_nid, ::SSL_CIPHER_get_cipher_nid}) {
      suite += std::string(" ") + ::OBJ_nid2sn(part(cipher));
    }
    suites.push_back(suite);
  }
  return suites;
}

TEST(CipherPolicy, Remaining) {
  const std::vector<std::string> suites = Suites(GetSupportedCiphersList());
  EXPECT_THAT(suites, Each(AllOf(HasSubstr(" KxECDHE "), Not(HasSubstr("AuthNULL")),
                                 HasSubstr(" id-aes"), EndsWith("-GCM"))));
  for (const char* const name :
       {"ECDHE-ECDSA-AES256-GCM-SHA384 ", "ECDHE-RSA-AES256-GCM-SHA384 ",
        "ECDHE-ECDSA-AES128-GCM-SHA256 ", "ECDHE-RSA-AES128-GCM-SHA256 "}) {
    EXPECT_THAT(suites, Contains(StartsWith(name)));
  }
}

// "Removed for good": a list appended to the policy cannot add a removed suite again.
TEST(CipherPolicy, Removed) {
  const std::string everything = "ALL:COMPLEMENTOFALL";
  const std::vector<std::string> all = Suites(everything);
  const std::vector<std::string> left = Suites(GetSupportedCiphersList() + ':' + everything);
  for (const char* const kind :
       {" KxRSA ", " KxDHE ", "PSK", " KxSRP ", " AuthNULL ", " UNDEF", "CAMELLIA"}) {
    EXPECT_THAT(all, Contains(HasSubstr(kind))) << "else this proves nothing";
    EXPECT_THAT(left, Not(Contains(HasSubstr(kind))));
  }
  EXPECT_THAT(left, Contains(Not(HasSubstr("GCM")))) << "the appended list takes effect";
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
