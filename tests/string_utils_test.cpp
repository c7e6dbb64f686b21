#include "common/string_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <locale>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/charset_cvt.h"
#include "reference/sha256.h"
#include "reference/split.h"
#include "support/environment.h"
#include "support/recording_logger.h"
#include "support/thread_locale.h"

namespace {

using tarsio::StringUtils;
using tarsio_test::ThreadLocale;
using testing::ElementsAre;
using Pieces = std::vector<std::string>;

constexpr char kNul = '\0';

// ---- splitting ----

TEST(SplitString, Table) {
  const struct {
    const char* text;
    const char* delimiter;
    Pieces split;
    Pieces all;
    Pieces first;
  } rows[] = {
      {"a,b", ",", {"a", "b"}, {"a", "b"}, {"a", "b"}},
      {"a,,b,", ",", {"a", "", "b", ""}, {"a", "", "b"}, {"a", ",b,"}},
      {",a", ",", {"", "a"}, {"", "a"}, {"", "a"}},
      {"", ",", {}, {""}, {""}},
      {",", ",", {"", ""}, {""}, {"", ""}},
      {"ab", "", {"ab"}, {"ab"}, {"", "ab"}},
      {"", "", {}, {""}, {"", ""}},
      // A delimiter is a string, not a set of characters.
      {"a::b::c", "::", {"a", "b", "c"}, {"a", "b", "c"}, {"a", "b::c"}},
      {"a,b;c", ",;", {"a,b;c"}, {"a,b;c", "a,b;c"}, {"a,b;c"}},
      // Matches are found from left to right and do not overlap.
      {"aXXXb", "XX", {"a", "Xb"}, {"a", "Xb"}, {"a", "Xb"}},
      {"ababac", "aba", {"", "bac"}, {"", "bac"}, {"", "bac"}},
      // SplitString() searches the input plus a delimiter, and cuts a match that ends there.
      {"a--b-", "--", {"a", "b"}, {"a", "b-"}, {"a", "b-"}},
      {"a---", "--", {"a", ""}, {"a", "-"}, {"a", "-"}},
      {"xab", "abab", {"x"}, {"xab", "xab"}, {"xab"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.text) + " at " + row.delimiter);
    EXPECT_EQ(StringUtils::SplitString(row.text, row.delimiter), row.split);
    EXPECT_EQ(StringUtils::SplitAllByString(row.text, row.delimiter), row.all);
    EXPECT_EQ(StringUtils::SplitFristByString(row.text, row.delimiter), row.first);
  }
}

// The input is a piece and the rest (by design).
TEST(SplitAllByString, NoDelimiter) {
  EXPECT_THAT(StringUtils::SplitAllByString("abc", ","), ElementsAre("abc", "abc"));
  EXPECT_THAT(StringUtils::SplitString("abc", ","), ElementsAre("abc"));
}

// NULs are ordinary characters.
TEST(SplitString, Random) {
  std::mt19937_64 random(20240305);
  const auto randomText = [&random](size_t shortest, size_t longest) {
    std::string text(shortest + random() % (longest - shortest + 1), ' ');
    for (char& c : text) c = "ab,\0"[random() % 4];
    return text;
  };
  for (int i = 0; i < 500000; ++i) {
    const std::string by = randomText(1, 3);
    const std::string text = randomText(0, 12);
    const auto traced = [&] { return testing::PrintToString(text) + testing::PrintToString(by); };
    ASSERT_EQ(StringUtils::SplitString(text, by), reference::SplitString(text, by)) << traced();
    ASSERT_EQ(StringUtils::SplitAllByString(text, by), reference::SplitAllByString(text, by))
        << traced();
    ASSERT_EQ(StringUtils::SplitFristByString(text, by), reference::SplitFirstByString(text, by))
        << traced();
  }
}

// ---- white space and case ----

std::string Trimmed(std::string text) {
  StringUtils::Trim(text);
  return text;
}

// StringUtils.Locale checks all bytes; these are examples.
TEST(StringUtils, Trim) {
  EXPECT_EQ(Trimmed(""), "");
  EXPECT_EQ(Trimmed("\t \rx  y\t\nz\v\f "), "x  y\t\nz");  // inner white space stays
  EXPECT_EQ(Trimmed(std::string(1000, ' ')), "");
}

TEST(StringUtils, Case) {
  EXPECT_EQ(StringUtils::ToUpper("Stra\xC3\x9F\x65 \xC3\xA9"), "STRA\xC3\x9F\x45 \xC3\xA9");
  EXPECT_EQ(StringUtils::ToLower("\xC3\x89T\xC3\x89"), "\xC3\x89t\xC3\x89");
  EXPECT_EQ(StringUtils::ToUpper("") + StringUtils::ToLower(""), "");
}

// In each of these locales that the system has: "C" everywhere, the others on some systems.
// Sign-extended, the byte 0xFF is the runtime's EOF: it is never white space, even if it is a
// letter or a space in the locale, and it is mapped like EOF. That is usually EOF itself, but one
// runtime maps it by a previously used locale.
TEST(StringUtils, Locale) {
  tarsio_test::FindTestLocales();
  const std::string before = std::setlocale(LC_CTYPE, nullptr);
  int known = 0;
  for (const char* name :
       {"C", "", "C.UTF-8", "en_US.ISO-8859-1", "de_DE.ISO-8859-1", "English_United States.437",
        "English_United States.1252", "Russian_Russia.1251", "C"}) {
    if (std::setlocale(LC_CTYPE, name) == nullptr) continue;
    ++known;
    for (int value = 0; value <= 0xFF; ++value) {
      SCOPED_TRACE(name + (" " + std::to_string(value)));
      const std::string byte(1, static_cast<char>(value));
      const int given = value == 0xFF ? EOF : value;
      EXPECT_EQ(Trimmed(byte + 'x' + byte), std::isspace(given) != 0 ? "x" : byte + 'x' + byte);
      EXPECT_EQ(Trimmed(byte), std::isspace(given) != 0 ? "" : byte);
      EXPECT_EQ(StringUtils::ToUpper(byte), std::string(1, static_cast<char>(std::toupper(given))));
      EXPECT_EQ(StringUtils::ToLower(byte), std::string(1, static_cast<char>(std::tolower(given))));
    }
  }
  EXPECT_GE(known, 3);
  std::setlocale(LC_CTYPE, before.c_str());
}

TEST(StringUtils, ThreadLocale) {
  std::thread([] {
    const ThreadLocale western;
    ASSERT_TRUE(western.IsSet());
    EXPECT_EQ(StringUtils::ToUpper("caf\xE9"), "CAF\xC9");
    EXPECT_EQ(StringUtils::ToLower("CAF\xC9"), "caf\xE9");
  }).join();
  EXPECT_EQ(StringUtils::ToUpper("caf\xE9"), "CAF\xE9");
}

// The runtime frees a locale's name when any thread changes the locale. The counter is relaxed so
// that it does not order the calls before the change.
TEST(StringUtils, LocaleChange) {
  tarsio_test::FindTestLocales();
  const tarsio_test::ScopedVariable user("LC_ALL", "en_US.ISO-8859-1");
  std::atomic<bool> changing{true};
  std::atomic<unsigned> calls{0};
  std::thread mapping([&] {
    while (changing) {
      EXPECT_EQ(StringUtils::ToUpper("Path-1"), "PATH-1");
      EXPECT_EQ(StringUtils::ToLower("Path-1"), "path-1");
      calls.fetch_add(1, std::memory_order_relaxed);
    }
  });
  const auto waitForCalls = [&calls] {
    const unsigned before = calls.load(std::memory_order_relaxed);
    while (calls.load(std::memory_order_relaxed) - before < 2) std::this_thread::yield();
  };
  for (int round = 0; round < 50; ++round) {
    tarsio::CharsetCvt::U8ToMb("abc");
    waitForCalls();
    std::locale::global(std::locale::classic());
    waitForCalls();
  }
  changing = false;
  mapping.join();
}

// ---- searching and replacing ----

TEST(StringUtils, Search) {
  const std::string nul(1, kNul);
  const struct {
    std::string text;
    std::string other;
    bool starts;
    bool ends;
    bool contains;
  } rows[] = {
      {"", "", true, true, true},
      {"ab", "", true, true, true},
      {"", "a", false, false, false},
      {"b", "ab", false, false, false},
      {"ab", "ab", true, true, true},
      {"ab", "a", true, false, true},
      {"ab", "b", false, true, true},
      {"abc", "b", false, false, true},
      {"abab", "ab", true, true, true},
      {"AB", "a", false, false, false},
      {"\xC3\xA9", "\xC3", true, false, true},
      {"\xC3\xA9", "\xA9", false, true, true},
      {"a" + nul + "b", "a" + nul, true, false, true},
      {"a" + nul + "b", nul + "b", false, true, true},
      {"a" + nul + "b", "a" + nul + "c", false, false, false},
      {"a" + nul, "a", true, false, true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.text) + " and " + testing::PrintToString(row.other));
    EXPECT_EQ(StringUtils::StartsWith(row.text, row.other), row.starts);
    EXPECT_EQ(StringUtils::EndsWith(row.text, row.other), row.ends);
    EXPECT_EQ(StringUtils::Contains(row.text, row.other), row.contains);
  }
}

TEST(SpaceToUnderscore, Set) {
  const std::string nul(1, kNul);
  const struct {
    std::string text;
    std::string characters;
    char replacement;
    std::string expected;
  } rows[] = {
      {"a b-c", " -", '_', "a_b_c"},
      {"a b-c", "- -", '_', "a_b_c"},  // a set: order and repetition do not matter
      {"a b_c", "", '_', "a b_c"},     // space and underscore have no special meaning
      {"", " ", '_', ""},
      {"abc", "abc", 'a', "aaa"},
      {"a" + nul + "b", nul, '_', "a_b"},
      {"a b", " ", kNul, "a" + nul + "b"},
      {"\xC3\xA9\xFF", "\xFF\xA9", '?', "\xC3??"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.text) + " of " +
                 testing::PrintToString(row.characters));
    EXPECT_EQ(StringUtils::SpaceToUnderscore(row.text, row.characters, row.replacement),
              row.expected);
  }
}

// Set and replacement are references and may refer to the input itself.
TEST(SpaceToUnderscore, Aliasing) {
  std::string text(100, 'a');  // too long for the small-string buffer, so a move keeps its address
  text[50] = '-';
  text[60] = ' ';
  const char& replacement = text[50];
  std::string expected(100, '-');
  expected[60] = ' ';
  EXPECT_EQ(StringUtils::SpaceToUnderscore(std::move(text), "a-", replacement), expected);

  const std::string both = "a b";
  EXPECT_EQ(StringUtils::SpaceToUnderscore(both, both, both[1]), "   ");
  EXPECT_EQ(both, "a b");
}

// ---- hashing ----

std::string HashOf(const std::string& data) {
  return StringUtils::GetHashText(data.data(), data.size());
}

TEST(HashText, StandardDigest) {
  EXPECT_EQ(HashOf(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(HashOf("abc"), "ba7816bf8f 1cfea414140de5dae2223b0 361a396177a9cb410ff61f2 015ad");
  EXPECT_EQ(StringUtils::SpaceToUnderscore(HashOf("abc"), " ", '0'),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(HashText, Null) {
  EXPECT_EQ(StringUtils::GetHashText(nullptr, 0), HashOf(""));
  EXPECT_EQ(StringUtils::GetHashText("x", 0), HashOf(""));
  EXPECT_EQ(StringUtils::GetHashText(nullptr, 1), "");
  EXPECT_EQ(StringUtils::GetHashText(nullptr, SIZE_MAX), "");
}

std::string ExpectedHash(const std::string& data) {
  std::string text;
  for (const unsigned char byte : reference::Sha256(data)) {
    text += byte < 16 ? ' ' : "0123456789abcdef"[byte / 16];
    text += "0123456789abcdef"[byte % 16];
  }
  return text;
}

struct HashesWhenDestroyed {
  ~HashesWhenDestroyed() {
    const bool same = StringUtils::GetHashText("abc", 3).size() == 64;
    std::fputs(same ? "hashed late\n" : "no hash\n", stderr);
  }
};

void HashAfterTheExitHandlers() {
  static const HashesWhenDestroyed olderThanTheFirstHash;
  StringUtils::GetHashText("a", 1);
  std::exit(0);
}

TEST(HashTextDeathTest, AtExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(HashAfterTheExitHandlers(), testing::ExitedWithCode(0), "hashed late");
}

TEST(HashText, AnyInput) {
  std::mt19937_64 random(20240306);
  for (size_t length = 0; length <= 300; ++length) {
    std::string data(length, kNul);
    for (char& c : data) c = static_cast<char>(random() & 0xFF);
    EXPECT_EQ(HashOf(data), ExpectedHash(data)) << length;
  }
  EXPECT_EQ(HashOf(std::string(1 << 20, '\xFF')), ExpectedHash(std::string(1 << 20, '\xFF')));
}

// ---- reports ----

TEST(StringUtils, LogsNothing) {
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const char* text : {"", " a,b\xFF "}) {
    StringUtils::SplitString(text, "");
    StringUtils::SplitAllByString(text, "");
    StringUtils::SplitFristByString(text, "");
    StringUtils::SpaceToUnderscore(text, "", '_');
    Trimmed(StringUtils::ToUpper(StringUtils::ToLower(text)));
    HashOf(text);
  }
  StringUtils::GetHashText(nullptr, 1);
  EXPECT_THAT(records->All(), testing::IsEmpty());
}

// ---- threads ----

TEST(StringUtils, Reentrant) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (size_t thread = 0; thread < wrong.size(); ++thread) {
    threads.emplace_back([&wrong, thread] {
      const std::string name(thread + 1, static_cast<char>('a' + thread));
      const std::string hash = ExpectedHash(name);
      for (int i = 0; i < 1000; ++i) {
        const bool right = HashOf(name) == hash &&
                           StringUtils::SplitString(name + "," + name, ",") == Pieces{name, name} &&
                           Trimmed(" " + name) == name &&
                           StringUtils::ToLower(StringUtils::ToUpper(name)) == name;
        if (!right) ++wrong[thread];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(wrong, testing::Each(0));
}

}  // namespace
