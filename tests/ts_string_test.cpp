#include "common/ts_string.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
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

// Whether the characters are inside the object, so that no buffer is allocated.
bool IsInline(const TsString& string) {
  const auto text = reinterpret_cast<uintptr_t>(string.Cstr());
  const auto object = reinterpret_cast<uintptr_t>(&string);
  return text >= object && text < object + sizeof string;
}

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
  explicit EnormousString(const std::string& content) : text(content) {
    Swap();
    string.*Reach(tarsio_test::TsStringCapacity()) = text.size() + 1;
  }
  EnormousString(const EnormousString&) = delete;
  EnormousString& operator=(const EnormousString&) = delete;
  ~EnormousString() {
    Swap();
    string.*Reach(tarsio_test::TsStringCapacity()) = 1;
  }

  const TsString& Get() const { return string; }

 private:
  void Swap() { std::swap(string.*Reach(tarsio_test::TsStringData()), other); }

  std::string text;
  char* other = &text[0];
  TsString string;
};

// ---- construction ----

TEST(TsString, Default) {
  const TsString string;
  ExpectText(string, "");
  EXPECT_STREQ(string.Cstr(), "");
  EXPECT_TRUE(IsInline(string));
  EXPECT_EQ(Capacity(string), 1U);
}

TEST(TsString, Null) {
  const char* const null = nullptr;
  const TsString string(null);
  ExpectText(string, "");
  EXPECT_TRUE(IsInline(string));
  EXPECT_EQ(Capacity(string), 1U);
}

TEST(TsString, EmptyNoBuffer) {
  const TsString fromText("");
  const TsString fromString{TsString()};
  TsString assigned;
  assigned = "";
  TsString assignedString;
  assignedString = fromText;
  const TsString* const strings[] = {&fromText, &fromString, &assigned, &assignedString};
  for (const TsString* string : strings) {
    ExpectText(*string, "");
    EXPECT_TRUE(IsInline(*string));
    EXPECT_EQ(Capacity(*string), 1U);
  }
}

TEST(TsString, HoldsCopy) {
  std::string everyByte;
  for (int byte = 1; byte <= 0xFF; ++byte) everyByte += static_cast<char>(byte);
  for (const std::string& text :
       {std::string("a"), std::string("some text"), everyByte, TextOf(1000000)}) {
    std::string original = text;
    const TsString string(original.c_str());
    original.assign(original.size(), 'x');
    ExpectText(string, text);
    EXPECT_FALSE(IsInline(string));
    EXPECT_EQ(Capacity(string), text.size() + 1);
  }
}

TEST(TsString, Terminator) {
  const char text[] = "ab\0cd";
  const TsString string(text);
  ExpectText(string, "ab");
  EXPECT_EQ(Capacity(string), 3U);
  TsString assigned("wxyz");
  assigned = text;
  ExpectText(assigned, "ab");
}

TEST(TsString, DeepCopies) {
  const TsString empty;
  TsString original("original");
  const TsString copy(original);
  TsString assigned;
  assigned = original;
  EXPECT_NE(copy.Cstr(), original.Cstr());
  EXPECT_NE(assigned.Cstr(), original.Cstr());
  EXPECT_NE(assigned.Cstr(), copy.Cstr());
  original = "x";
  ExpectText(copy, "original");
  ExpectText(assigned, "original");
  original = empty;
  ExpectText(copy, "original");
  assigned = "y";
  ExpectText(copy, "original");
}

TEST(TsString, CopyOutlives) {
  auto original = std::make_unique<TsString>("original");
  const TsString copy(*original);
  TsString assigned;
  assigned = *original;
  original.reset();
  ExpectText(copy, "original");
  ExpectText(assigned, "original");
}

TEST(TsString, CopyBufferSize) {
  TsString original("a text of some length");
  original = "short";
  EXPECT_EQ(Capacity(original), 22U);
  const TsString copy(original);
  EXPECT_EQ(Capacity(copy), 6U);
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
  EXPECT_NE(constructed.Cstr(), buffer);
  EXPECT_NE(assigned.Cstr(), buffer);
}

// ---- assignment ----

TEST(TsString, AssignResult) {
  TsString string;
  const TsString other("other");
  EXPECT_EQ(&(string = "text"), &string);
  EXPECT_EQ(&(string = other), &string);
}

TEST(TsString, BufferReuse) {
  const std::string text20 = TextOf(20);
  TsString string(text20.c_str());
  EXPECT_EQ(Capacity(string), 21U);
  const char* const buffer = string.Cstr();
  for (const size_t length : {10U, 20U, 0U, 19U, 1U, 20U}) {
    SCOPED_TRACE(length);
    string = TextOf(length).c_str();
    ExpectText(string, TextOf(length));
    EXPECT_EQ(string.Cstr(), buffer);
    string = TsString(TextOf(length).c_str());
    ExpectText(string, TextOf(length));
    EXPECT_EQ(string.Cstr(), buffer);
    EXPECT_EQ(Capacity(string), 21U);
  }
  string = TextOf(30).c_str();
  ExpectText(string, TextOf(30));
  EXPECT_EQ(Capacity(string), 31U);
  string = TsString(TextOf(31).c_str());
  ExpectText(string, TextOf(31));
  EXPECT_EQ(Capacity(string), 32U);
}

TEST(TsString, EmptyKeeps) {
  const char* const null = nullptr;
  TsString string("some text");
  const char* const buffer = string.Cstr();
  const auto expectEmptyInItsBuffer = [&] {
    ExpectText(string, "");
    EXPECT_EQ(string.Cstr(), buffer);
    EXPECT_EQ(Capacity(string), 10U);
  };
  string = "";
  expectEmptyInItsBuffer();
  string = "full";
  string = null;
  expectEmptyInItsBuffer();
  string = "full";
  string = TsString();
  expectEmptyInItsBuffer();
}

TEST(TsString, SelfAssign) {
  for (const std::string& text : {std::string(), TextOf(1), TextOf(1000)}) {
    TsString string(text.c_str());
    const char* const buffer = string.Cstr();
    const TsString& same = string;
    string = same;
    ExpectText(string, text);
    EXPECT_EQ(string.Cstr(), buffer);
    EXPECT_EQ(Capacity(string), text.size() + 1);
  }
}

TEST(TsString, OwnBuffer) {
  const std::string text = TextOf(100);
  for (size_t start = 0; start <= text.size(); ++start) {
    SCOPED_TRACE(start);
    TsString string(text.c_str());
    const char* const buffer = string.Cstr();
    string = string.Cstr() + start;
    ExpectText(string, text.substr(start));
    EXPECT_EQ(string.Cstr(), buffer);
    EXPECT_EQ(Capacity(string), 101U);
  }
  TsString empty;
  empty = empty.Cstr();
  ExpectText(empty, "");
}

// A buffer that is too small is replaced by one of exactly the required size; others are kept.
TEST(TsString, NoShrinking) {
  struct Model {
    TsString string;
    std::string text;
    uint64_t capacity = 1;

    void Expect(const char* buffer, uint64_t capacityBefore) {
      ExpectText(string, text);
      capacity = std::max<uint64_t>(capacityBefore, text.size() + 1);
      EXPECT_EQ(Capacity(string), capacity);
      if (capacity != capacityBefore) return;
      EXPECT_EQ(string.Cstr(), buffer);
    }
  };
  std::mt19937_64 random(7);
  Model models[4];
  for (size_t round = 0; round < 20000 && !HasFailure(); ++round) {
    SCOPED_TRACE(round);
    Model& target = models[random() % 4];
    const Model& source = models[random() % 4];
    const char* const buffer = target.string.Cstr();
    const uint64_t capacity = target.capacity;
    switch (random() % 5) {
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
      case 3:
        target.text = target.text.substr(random() % (target.text.size() + 1));
        target.string = target.string.Cstr() + (target.string.Length() - target.text.size());
        break;
      default:
        target.text = TextOf(random() % 8);
        target.string = TsString(target.text.c_str());
    }
    target.Expect(buffer, capacity);
  }
}

// ---- the length limit for C strings ----

TEST(TsString, Limit) {
  std::string text = TextOf(kLongestText + 1000);
  for (const size_t length :
       {kLongestText - 1, kLongestText, kLongestText + 1, kLongestText + 1000}) {
    SCOPED_TRACE(length);
    const std::string whole = text.substr(0, length);
    const std::string kept = text.substr(0, std::min(length, kLongestText));
    const TsString constructed(whole.c_str());
    ExpectText(constructed, kept);
    EXPECT_EQ(Capacity(constructed), kept.size() + 1);
    TsString assigned("x");
    assigned = whole.c_str();
    ExpectText(assigned, kept);
    EXPECT_EQ(Capacity(assigned), kept.size() + 1);
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
  for (const size_t length : {kLongestText, kLongestText + 1, 2 * kLongestText}) {
    SCOPED_TRACE(length);
    const std::string text = TextOf(length);
    const EnormousString enormous(text);
    ExpectText(enormous.Get(), text);

    const TsString copy(enormous.Get());
    ExpectText(copy, text);
    EXPECT_EQ(Capacity(copy), length + 1);
    TsString assigned("x");
    assigned = enormous.Get();
    ExpectText(assigned, text);
    EXPECT_EQ(Capacity(assigned), length + 1);
    EXPECT_TRUE(copy == assigned);

    TsString cut("x");
    cut = enormous.Get().Cstr();
    EXPECT_EQ(cut.Length(), kLongestText);
    EXPECT_EQ(cut == copy, length == kLongestText);
    assigned = assigned.Cstr();
    EXPECT_EQ(assigned.Length(), kLongestText);
  }
}

// ---- comparison ----

TEST(TsString, CompareBytes) {
  const struct {
    const char* name;
    const char* left;
    const char* right;
    bool equal;
  } rows[] = {
      {"both empty", "", "", true},
      {"one empty", "", "a", false},
      {"equal", "some text", "some text", true},
      {"another last byte", "abc", "abd", false},
      {"another first byte", "abc", "bbc", false},
      {"prefix", "abc", "abcd", false},
      {"case", "abc", "ABC", false},
      {"high bytes equal", "\xFF\x80", "\xFF\x80", true},
      {"high bytes differ", "\xFF\x80", "\xFF\x81", false},
      {"sign bit", "\x7F", "\xFF", false},
      {"one character in two forms", "\xC3\xA9", "e\xCC\x81", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const TsString left(row.left);
    const TsString right(row.right);
    EXPECT_EQ(left == right, row.equal);
    EXPECT_EQ(right == left, row.equal);
    EXPECT_EQ(left != right, !row.equal);
    EXPECT_EQ(right != left, !row.equal);
    EXPECT_EQ(left == row.right, row.equal);
  }
  const TsString string("text");
  const TsString& same = string;
  EXPECT_TRUE(string == same);
  EXPECT_FALSE(string != same);
}

TEST(TsString, Compare) {
  TsString large("a string that is long");
  large = "text";  // the previous content is after the terminator
  const TsString small("text");
  ASSERT_NE(Capacity(large), Capacity(small));
  EXPECT_TRUE(large == small);
  EXPECT_FALSE(large != small);
  large = "";
  const TsString empty;
  EXPECT_TRUE(large == empty);
  EXPECT_TRUE(empty == large);
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
  constexpr size_t kThreads = 4;
  constexpr size_t kRounds = 20000;
  size_t mismatches[kThreads] = {};
  std::atomic<size_t> ready{0};
  std::vector<std::thread> threads;
  for (size_t thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&ready, &mismatch = mismatches[thread], thread] {
      ++ready;
      while (ready < kThreads) std::this_thread::yield();
      for (size_t round = 0; round < kRounds; ++round) {
        const std::string text(round % 3000, static_cast<char>('a' + thread));
        const std::string longer = text + text + 'x';
        const TsString string(text.c_str());
        TsString copy(string);
        TsString assigned(longer.c_str());
        const bool differ = assigned != string;
        assigned = string;
        copy = longer.c_str();
        TsStringPair pair;
        pair.first = copy;
        const TsStringPair copiedPair(pair);
        const bool right = string.Cstr() == text && differ && assigned == string &&
                           copy.Cstr() == longer && copiedPair.first.Length() == longer.size() &&
                           copiedPair.first == copy && copiedPair.second.IsEmpty();
        if (!right) ++mismatch;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const size_t mismatch : mismatches) EXPECT_EQ(mismatch, 0U);
}

// ---- destruction ----

class DerivedString : public TsString {
 public:
  DerivedString(const char* text, int* counter) : TsString(text), destroyed(counter) {}
  DerivedString(const DerivedString&) = delete;
  DerivedString& operator=(const DerivedString&) = delete;
  ~DerivedString() override { ++*destroyed; }

 private:
  int* const destroyed;
};

TEST(TsString, Virtual) {
  int destroyed = 0;
  std::unique_ptr<TsString> string = std::make_unique<DerivedString>("text", &destroyed);
  ExpectText(*string, "text");
  string.reset();
  EXPECT_EQ(destroyed, 1);
}

// ---- pairs ----

TsStringPair PairOf(const char* first, const char* second) {
  TsStringPair pair;
  pair.first = first;
  pair.second = second;
  return pair;
}

void ExpectPair(const TsStringPair& pair, const std::string& first, const std::string& second) {
  ExpectText(pair.first, first);
  ExpectText(pair.second, second);
}

TEST(TsStringPair, Default) {
  const TsStringPair pair;
  ExpectPair(pair, "", "");
  EXPECT_TRUE(IsInline(pair.first));
  EXPECT_TRUE(IsInline(pair.second));
}

TEST(TsStringPair, Copy) {
  TsStringPair source = PairOf("first", "second one");
  const TsStringPair constructed(source);
  TsStringPair assigned = PairOf("x", "y");
  EXPECT_EQ(&(assigned = source), &assigned);
  ExpectPair(source, "first", "second one");
  source.first = "changed";
  source.second = "as well";
  ExpectPair(constructed, "first", "second one");
  ExpectPair(assigned, "first", "second one");
}

// Buffers are not transferred (by design).
TEST(TsStringPair, Move) {
  TsStringPair source = PairOf("first", "second one");
  const char* const first = source.first.Cstr();
  const char* const second = source.second.Cstr();
  const TsStringPair constructed(std::move(source));
  TsStringPair assigned = PairOf("x", "y");
  // NOLINTNEXTLINE(bugprone-use-after-move): under test
  EXPECT_EQ(&(assigned = std::move(source)), &assigned);
  ExpectPair(source, "first", "second one");
  EXPECT_EQ(source.first.Cstr(), first);
  EXPECT_EQ(source.second.Cstr(), second);
  const TsStringPair* const pairs[] = {&constructed, &assigned};
  for (const TsStringPair* pair : pairs) {
    ExpectPair(*pair, "first", "second one");
    EXPECT_NE(pair->first.Cstr(), first);
    EXPECT_NE(pair->second.Cstr(), second);
  }
}

TEST(TsStringPair, BufferReuse) {
  const TsStringPair copied = PairOf("1", "22");
  TsStringPair moved = PairOf("333", "4444");
  TsStringPair target = PairOf("a longer string", "another longer string");
  const char* const first = target.first.Cstr();
  const char* const second = target.second.Cstr();
  target = copied;
  ExpectPair(target, "1", "22");
  target = std::move(moved);
  ExpectPair(target, "333", "4444");
  EXPECT_EQ(target.first.Cstr(), first);
  EXPECT_EQ(target.second.Cstr(), second);
}

TEST(TsStringPair, SelfAssign) {
  TsStringPair pair = PairOf("first", "second");
  TsStringPair& same = pair;
  pair = same;
  ExpectPair(pair, "first", "second");
  pair = std::move(same);
  ExpectPair(pair, "first", "second");
}

TEST(TsStringPair, NoLimit) {
  const std::string text = TextOf(kLongestText + 1);
  const EnormousString enormous(text);
  TsStringPair source;
  source.second = enormous.Get();
  const TsStringPair copy(source);
  ExpectPair(copy, "", text);
}

}  // namespace
