#include "common/ts_string.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/allocations.h"
#include "support/private_member.h"

namespace tarsio_test {

EXPOSE_PRIVATE(TsStringData, &tarsio::TsString::data);
EXPOSE_PRIVATE(TsStringCapacity, &tarsio::TsString::capacity);

}  // namespace tarsio_test

namespace {

using tarsio::TsString;
using tarsio::TsStringPair;
using tarsio_test::AllocationWatch;
using tarsio_test::kAllocationsOfTheLibraryAreSeen;
using tarsio_test::LiveAllocations;

constexpr size_t kLongestText = 16777214;

static_assert(std::has_virtual_destructor<TsString>::value, "hosts derive from it");
static_assert(std::is_convertible<const char*, TsString>::value, "hosts pass literals");
static_assert(!std::is_polymorphic<TsStringPair>::value, "a plain pair");
static_assert(sizeof(TsStringPair) == 2 * sizeof(TsString), "no other fields");
static_assert(std::is_same<decltype(TsStringPair::first), TsString>::value, "");
static_assert(std::is_same<decltype(TsStringPair::second), TsString>::value, "");

uint64_t Capacity(const TsString& string) { return string.*Reach(tarsio_test::TsStringCapacity()); }

// Checks every observer of a string of this length.
void ExpectText(const TsString& string, const std::string& text) {
  ASSERT_NE(string.Cstr(), nullptr);
  EXPECT_EQ(string.Length(), text.size());
  EXPECT_EQ(string.IsEmpty(), text.empty());
  EXPECT_TRUE(string.Cstr() == text);
  EXPECT_GE(Capacity(string), text.size() + 1);
}

// Four different letters in turn, so that an offset shows.
std::string TextOf(size_t length) {
  std::string text(length, 'a');
  for (size_t i = 0; i < length; ++i) text[i] = static_cast<char>('a' + i % 4);
  return text;
}

// A string longer than the limit for input. It borrows its buffer.
class EnormousString {
 public:
  explicit EnormousString(std::string content) : text(std::move(content)) {
    own = std::exchange(string.*Reach(tarsio_test::TsStringData()), &text[0]);
  }
  EnormousString(const EnormousString&) = delete;
  EnormousString& operator=(const EnormousString&) = delete;
  ~EnormousString() { string.*Reach(tarsio_test::TsStringData()) = own; }

  const TsString& Get() const { return string; }

 private:
  std::string text;
  TsString string;
  char* own;
};

// ---- construction ----

TEST(TsString, Empty) {
  const char* const null = nullptr;
  const TsString none;
  TsString assigned;
  assigned = "";
  TsString assignedString;
  assignedString = none;
  for (const TsString& string : {none, TsString(null), TsString(""), assigned, assignedString}) {
    ExpectText(string, "");
    EXPECT_EQ(Capacity(string), 1U);
  }
}

TEST(TsString, HoldsCopy) {
  std::string everyByte;
  for (int byte = 1; byte <= 0xFF; ++byte) everyByte += static_cast<char>(byte);
  for (const std::string& text : {std::string("a"), everyByte, TextOf(1000000)}) {
    std::string original = text;
    const TsString string(original.c_str());
    original.assign(original.size(), 'x');
    ExpectText(string, text);
    EXPECT_EQ(Capacity(string), text.size() + 1);
  }
}

TEST(TsString, Copies) {
  auto original = std::make_unique<TsString>("a text of some length");
  *original = "short";
  EXPECT_EQ(Capacity(*original), 22U);
  const TsString copy(*original);
  EXPECT_EQ(Capacity(copy), 6U);
  TsString assigned;
  EXPECT_EQ(&(assigned = *original), &assigned);
  EXPECT_NE(assigned.Cstr(), copy.Cstr());
  original.reset();
  assigned = "x";
  ExpectText(copy, "short");
}

// There are no move operations (by design).
TEST(TsString, MoveCopies) {
  TsString source("source");
  const char* const buffer = source.Cstr();
  const TsString constructed(std::move(source));
  TsString assigned;
  assigned = std::move(source);  // NOLINT(bugprone-use-after-move): under test
  EXPECT_EQ(source.Cstr(), buffer);
  ExpectText(source, "source");
  ExpectText(constructed, "source");
  ExpectText(assigned, "source");
}

// ---- assignment ----

// A buffer that is too small is replaced by one of exactly the required size; others are kept.
TEST(TsString, NoShrinking) {
  struct Model {
    TsString string;
    std::string text;
  };
  const char* const null = nullptr;
  std::mt19937_64 random(7);
  Model models[4];
  for (size_t round = 0; round < 20000 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    Model& target = models[random() % 4];
    const Model& source = models[random() % 4];  // may be the target
    const char* const buffer = target.string.Cstr();
    const uint64_t capacity = Capacity(target.string);
    switch (random() % 6) {
      case 0:
        target.text = TextOf(random() % (1 + round / 50));
        target.string = target.text.c_str();
        break;
      case 1:
        target.text = source.text;
        target.string = source.string;
        break;
      case 2:
        target.text = source.text;
        target.string = source.string.Cstr();
        break;
      case 3:  // a part of the string's own buffer
        target.text = target.text.substr(random() % (target.text.size() + 1));
        target.string = target.string.Cstr() + (target.string.Length() - target.text.size());
        break;
      case 4:
        target.text = "";
        target.string = null;
        break;
      default:
        target.text = TextOf(random() % 8);
        target.string = TsString(target.text.c_str());
    }
    ExpectText(target.string, target.text);
    EXPECT_EQ(Capacity(target.string), std::max<uint64_t>(capacity, target.text.size() + 1));
    EXPECT_TRUE(target.string.Cstr() == buffer || Capacity(target.string) > capacity);
  }
}

// ---- the length limit for C strings ----

TEST(TsString, Limit) {
  for (const size_t length : {kLongestText - 1, kLongestText, kLongestText + 1}) {
    SCOPED_TRACE(length);
    const std::string whole = TextOf(length);
    const std::string kept = whole.substr(0, kLongestText);
    const TsString constructed(whole.c_str());
    TsString assigned("x");
    assigned = whole.c_str();
    for (const TsString* const string : {&constructed, &std::as_const(assigned)}) {
      ExpectText(*string, kept);
      EXPECT_EQ(Capacity(*string), kept.size() + 1);
    }
  }
}

// A C string at the limit needs no terminator: nothing after the limit is read.
TEST(TsString, ReadLimit) {
  const std::vector<char> text(kLongestText, 'a');
  const TsString constructed(text.data());
  EXPECT_EQ(constructed.Length(), kLongestText);
  TsString assigned;
  assigned = text.data();
  EXPECT_EQ(assigned.Length(), kLongestText);
}

// Only C strings are limited, TsString objects are not (by design).
TEST(TsString, CopyNoLimit) {
  const std::string text = TextOf(2 * kLongestText);
  const EnormousString enormous(text);
  const TsString copy(enormous.Get());
  TsString assigned("x");
  assigned = enormous.Get();
  for (const TsString* const string : {&copy, &std::as_const(assigned)}) {
    ExpectText(*string, text);
    EXPECT_EQ(Capacity(*string), text.size() + 1);
  }
  EXPECT_TRUE(copy == assigned);
  assigned = assigned.Cstr();
  EXPECT_EQ(assigned.Length(), kLongestText);
  EXPECT_FALSE(copy == assigned);

  TsStringPair pair;
  pair.second = enormous.Get();
  const TsStringPair copiedPair(pair);
  ExpectText(copiedPair.second, text);
}

// ---- comparison ----

TEST(TsString, Compare) {
  const std::string texts[] = {"",     "text",     "Text",     "texts",    "texu",
                               "\x7F", "\xFF\x80", "\xFF\x81", "\xC3\xA9", "e\xCC\x81"};
  for (const std::string& left : texts) {
    for (const std::string& right : texts) {
      SCOPED_TRACE(testing::PrintToString(left) + " and " + testing::PrintToString(right));
      TsString large("a string that is long");
      large = left.c_str();  // the previous content is after the terminator
      const TsString small(right.c_str());
      EXPECT_EQ(large == small, left == right);
      EXPECT_EQ(small == large, left == right);
      EXPECT_EQ(large != small, left != right);
      EXPECT_EQ(large == right.c_str(), left == right);
    }
  }
}

// ---- buffers ----

// A host may use another allocator than the library and still exchange strings with it.
TEST(TsString, Allocator) {
  const size_t before = LiveAllocations();
  size_t allocations = 0;
  {
    const AllocationWatch watch;
    TsString string("a string that needs a buffer");
    string = "and one that needs a larger buffer than the first";
    TsString copy(string);
    copy = TsString("the largest of all, which replaces a shorter string");
    TsStringPair pair;
    pair.first = string;
    const TsStringPair copiedPair(pair);
    allocations = watch.Count();
  }
  EXPECT_EQ(allocations > 0, kAllocationsOfTheLibraryAreSeen);
  EXPECT_EQ(LiveAllocations(), before);
}

// ---- threads ----

TEST(TsString, ManyThreads) {
  std::vector<std::thread> threads;
  std::vector<size_t> mismatches(4, 0);
  for (size_t thread = 0; thread < mismatches.size(); ++thread) {
    threads.emplace_back([&mismatch = mismatches[thread], thread] {
      for (size_t round = 0; round < 20000; ++round) {
        const std::string text(round % 3000, static_cast<char>('a' + thread));
        const std::string longer = text + text + 'x';
        const TsString string(text.c_str());
        TsStringPair pair;
        pair.first = longer.c_str();
        const TsStringPair copied(pair);
        const bool differ = pair.first != string;
        pair.first = string;
        const bool right = string.Cstr() == text && differ && pair.first == string &&
                           copied.first.Cstr() == longer && copied.second.IsEmpty();
        if (!right) ++mismatch;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(mismatches, testing::Each(0U));
}

// ---- pairs ----

void ExpectPair(const TsStringPair& pair, const std::string& first, const std::string& second) {
  ExpectText(pair.first, first);
  ExpectText(pair.second, second);
}

// A move copies; buffers are not transferred (by design).
TEST(TsStringPair, Move) {
  TsStringPair source;
  ExpectPair(source, "", "");
  source.first = "first";
  source.second = "second one";
  const char* const buffers[] = {source.first.Cstr(), source.second.Cstr()};
  const TsStringPair constructed(source);
  const TsStringPair moved(std::move(source));
  TsStringPair assigned;
  // NOLINTBEGIN(bugprone-use-after-move): under test
  EXPECT_EQ(&(assigned = source), &assigned);
  TsStringPair moveAssigned;
  EXPECT_EQ(&(moveAssigned = std::move(source)), &moveAssigned);
  ExpectPair(source, "first", "second one");
  EXPECT_THAT(buffers, testing::ElementsAre(source.first.Cstr(), source.second.Cstr()));
  source.first = "changed";
  source.second = "as well";
  // NOLINTEND(bugprone-use-after-move)
  TsStringPair& same = assigned;
  assigned = same;
  TsStringPair& sameMoved = moveAssigned;
  moveAssigned = std::move(sameMoved);
  for (const TsStringPair* pair :
       {&constructed, &moved, &std::as_const(assigned), &std::as_const(moveAssigned)}) {
    ExpectPair(*pair, "first", "second one");
  }
}

}  // namespace
