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
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.text) + " at " + row.delimiter);
    EXPECT_EQ(StringUtils::SplitString(row.text, row.delimiter), row.split);
    EXPECT_EQ(StringUtils::SplitAllByString(row.text, row.delimiter), row.all);
    EXPECT_EQ(StringUtils::SplitFristByString(row.text, row.delimiter), row.first);
  }
}

// The search runs over the input plus a delimiter; a match that ends in the added part is cut.
TEST(SplitString, Partial) {
  EXPECT_THAT(StringUtils::SplitString("a--b-", "--"), ElementsAre("a", "b"));
  EXPECT_THAT(StringUtils::SplitString("a---", "--"), ElementsAre("a", ""));
  EXPECT_THAT(StringUtils::SplitString("xab", "abab"), ElementsAre("x"));
  EXPECT_THAT(StringUtils::SplitAllByString("a---", "--"), ElementsAre("a", "-"));
  EXPECT_THAT(StringUtils::SplitFristByString("a-", "--"), ElementsAre("a-"));
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
  for (int i = 0; i < 1000000 && !HasFailure(); ++i) {
    const std::string delimiter = randomText(1, 3);
    const std::string text = randomText(0, 12);
    const Pieces split = StringUtils::SplitString(text, delimiter);
    const Pieces all = StringUtils::SplitAllByString(text, delimiter);
    const Pieces first = StringUtils::SplitFristByString(text, delimiter);
    if (split == reference::SplitString(text, delimiter) &&
        all == reference::SplitAllByString(text, delimiter) &&
        first == reference::SplitFirstByString(text, delimiter)) {
      continue;
    }
    SCOPED_TRACE(testing::PrintToString(text) + " at " + testing::PrintToString(delimiter));
    EXPECT_EQ(split, reference::SplitString(text, delimiter));
    EXPECT_EQ(all, reference::SplitAllByString(text, delimiter));
    EXPECT_EQ(first, reference::SplitFirstByString(text, delimiter));
  }
}

// ---- white space and case ----

std::string Trimmed(std::string text) {
  StringUtils::Trim(text);
  return text;
}

TEST(StringUtils, Trim) {
  EXPECT_EQ(Trimmed(""), "");
  EXPECT_EQ(Trimmed("\t \rx  y\t\nz\v\f "), "x  y\t\nz");  // inner white space stays
  EXPECT_EQ(Trimmed(std::string(1000, ' ')), "");
  const std::string spaces = " \t\n\v\f\r";
  for (int value = 0; value < 256; ++value) {
    const std::string byte(1, static_cast<char>(value));
    const bool isSpace = spaces.find(byte) != std::string::npos;
    const std::string inside = 'x' + byte + 'x';
    EXPECT_EQ(Trimmed(byte + inside + byte), isSpace ? inside : byte + inside + byte) << value;
    EXPECT_EQ(Trimmed(byte), isSpace ? "" : byte) << value;
  }
}

std::string AllBytes() {
  std::string bytes(256, kNul);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i);
  return bytes;
}

// Usually EOF itself, but one runtime maps the byte 0xFF by a previously used locale.
std::string UpperOfEof() { return std::string(1, static_cast<char>(std::toupper(EOF))); }
std::string LowerOfEof() { return std::string(1, static_cast<char>(std::tolower(EOF))); }

TEST(StringUtils, CaseC) {
  const std::string lower = "abcdefghijklmnopqrstuvwxyz";
  const std::string upper = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string raised = AllBytes();
  std::string lowered = AllBytes();
  for (size_t i = 0; i < lower.size(); ++i) {
    raised[static_cast<unsigned char>(lower[i])] = upper[i];
    lowered[static_cast<unsigned char>(upper[i])] = lower[i];
  }
  raised.replace(0xFF, 1, UpperOfEof());
  lowered.replace(0xFF, 1, LowerOfEof());
  EXPECT_EQ(StringUtils::ToUpper(AllBytes()), raised);
  EXPECT_EQ(StringUtils::ToLower(AllBytes()), lowered);
  EXPECT_EQ(StringUtils::ToUpper(""), "");
  EXPECT_EQ(StringUtils::ToLower(""), "");
  EXPECT_EQ(StringUtils::ToUpper("Stra\xC3\x9F\x65 \xC3\xA9"), "STRA\xC3\x9F\x45 \xC3\xA9");
  EXPECT_EQ(StringUtils::ToLower("\xC3\x89T\xC3\x89"), "\xC3\x89t\xC3\x89");
}

class ScopedRuntimeLocale {
 public:
  explicit ScopedRuntimeLocale(const char* name)
      : before(std::setlocale(LC_CTYPE, nullptr)),
        known(std::setlocale(LC_CTYPE, name) != nullptr) {}
  ScopedRuntimeLocale(const ScopedRuntimeLocale&) = delete;
  ScopedRuntimeLocale& operator=(const ScopedRuntimeLocale&) = delete;
  ~ScopedRuntimeLocale() { std::setlocale(LC_CTYPE, before.c_str()); }

  bool IsKnown() const { return known; }

 private:
  const std::string before;
  const bool known;
};

// In each of these locales that the system has: "C" everywhere, the others on some systems.
// Sign-extended, the byte 0xFF is the runtime's EOF: it is never white space, even if it is a
// letter or a space in the locale, and it is mapped like EOF.
TEST(StringUtils, Locale) {
  tarsio_test::FindTestLocales();
  int known = 0;
  for (const char* name :
       {"C", "", "C.UTF-8", "en_US.ISO-8859-1", "de_DE.ISO-8859-1", "English_United States.437",
        "English_United States.1252", "Russian_Russia.1251"}) {
    SCOPED_TRACE(name);
    const ScopedRuntimeLocale locale(name);
    if (!locale.IsKnown()) continue;
    ++known;
    for (int value = 0; value < 0xFF; ++value) {
      SCOPED_TRACE(value);
      const std::string byte(1, static_cast<char>(value));
      EXPECT_EQ(Trimmed(byte + 'x' + byte), std::isspace(value) != 0 ? "x" : byte + 'x' + byte);
      EXPECT_EQ(StringUtils::ToUpper(byte), std::string(1, static_cast<char>(std::toupper(value))));
      EXPECT_EQ(StringUtils::ToLower(byte), std::string(1, static_cast<char>(std::tolower(value))));
    }
    EXPECT_EQ(Trimmed("\xFFx\xFF"), "\xFFx\xFF");
    EXPECT_EQ(StringUtils::ToUpper("\xFF"), UpperOfEof());
    EXPECT_EQ(StringUtils::ToLower("\xFF"), LowerOfEof());
  }
  EXPECT_GE(known, 2);
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
  EXPECT_EQ(HashOf("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d2 638b8e5c02693 c3e6039a33ce45964ff2167f6ecedd419db 6c1");
  EXPECT_EQ(HashOf(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a49720 e 46d39ccc7112cd0");
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

TEST(HashText, UsualForm) {
  EXPECT_EQ(StringUtils::SpaceToUnderscore(HashOf("abc"), " ", '0'),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
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
