// Every allocation of the boundary strings, and their state after a failed one. Their source is
// compiled into this program, since the library may have its own allocator.

#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <new>
#include <string>
#include <utility>

#include "common/ts_string.h"

namespace {

using tarsio::TsString;
using tarsio::TsStringPair;

// An allocation or a deallocation.
struct Step {
  char kind;
  size_t size;  // 0 if the memory was allocated before the recording
  void* memory;
};

Step steps[64];
size_t recorded = 0;
size_t allowed = 0;  // allocations before the ones that fail
bool recording = false;

void Record(const Step& step) {
  if (recorded == std::size(steps)) std::abort();
  steps[recorded++] = step;
}

void* Allocate(size_t size) {
  const bool refused = recording && allowed-- == 0;
  void* const memory = refused ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  if (recording) Record({'+', size, memory});
  return memory;
}

void Free(void* memory) {
  if (recording && memory != nullptr) {
    size_t size = 0;
    for (size_t i = 0; i < recorded; ++i) {
      if (steps[i].kind == '+' && steps[i].memory == memory) size = steps[i].size;
    }
    Record({'-', size, memory});
  }
  std::free(memory);
}

// Returns the allocations and deallocations of a call, with their sizes, as in "+11 -11 ", and
// "throws" if it throws std::bad_alloc. Allocations fail after the first `most`.
template <typename Call>
std::string StepsOf(const Call& call, size_t most = SIZE_MAX) {
  bool threw = false;
  recorded = 0;
  allowed = most;
  recording = true;
  try {
    call();
  } catch (const std::bad_alloc&) {
    threw = true;
  }
  recording = false;
  std::string text;
  for (size_t i = 0; i < recorded; ++i) {
    text += steps[i].kind + (steps[i].size > 0 ? std::to_string(steps[i].size) : "old") + ' ';
  }
  return text + (threw ? "throws" : "");
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { Free(memory); }
void operator delete[](void* memory, size_t /*size*/) noexcept { Free(memory); }

namespace {

const char* const kNull = nullptr;
const char* const kText10 = "0123456789";
const char* const kText20 = "01234567890123456789";
const char* const kText30 = "012345678901234567890123456789";

TEST(TsStringHeap, Empty) {
  const auto call = [] {
    TsString string;
    const TsString null(kNull);
    const TsString empty("");
    const TsString copy(string);
    string = kNull;
    string = "";
    string = empty;
    const TsStringPair pair;
    TsStringPair other(pair);
    other = pair;
  };
  EXPECT_EQ(StepsOf(call), "");
}

TEST(TsStringHeap, Length) {
  const auto call = [] {
    const TsString string(kText10);
    const TsString copy(string);
    TsString assigned;
    assigned = kText20;
    TsString assignedString;
    assignedString = assigned;
  };
  EXPECT_EQ(StepsOf(call), "+11 +11 +21 +21 -21 -21 -11 -11 ");
}

TEST(TsStringHeap, Growth) {
  const auto call = [] {
    TsString string(kText20);
    string = kText10;
    string = "";
    string = kNull;
    string = kText20;
    string = kText30;
    string = TsString(kText20);
  };
  EXPECT_EQ(StepsOf(call), "+21 -21 +31 +21 -21 -31 ");
}

// Calls that need no memory succeed without any.
TEST(TsStringHeap, NoMemory) {
  TsString string(kText20);
  const TsString& same = string;
  const TsString other(kText10);
  bool observed = false;
  const auto call = [&] {
    string = other;
    string = kText20;
    string = same;
    string = string.Cstr();
    observed = string == same && !(string != same) && !string.IsEmpty() && string.Length() == 20;
    string = string.Cstr() + 5;
  };
  EXPECT_EQ(StepsOf(call, 0), "");
  EXPECT_TRUE(observed);
  EXPECT_STREQ(string.Cstr(), kText20 + 5);
}

TEST(TsStringHeap, Destructor) {
  struct Derived : TsString {
    using TsString::TsString;
  };
  const auto call = [] {
    const TsString* const string = new Derived(kText10);
    delete string;
  };
  const std::string size = std::to_string(sizeof(Derived));
  EXPECT_EQ(StepsOf(call), "+" + size + " +11 -11 -" + size + " ");
}

// ---- failed allocations ----

void ExpectEmptyAndUsable(TsString& string) {
  EXPECT_STREQ(string.Cstr(), "");
  EXPECT_EQ(string.Length(), 0U);
  EXPECT_TRUE(string.IsEmpty());
  EXPECT_TRUE(string == TsString());
  EXPECT_TRUE(TsString(string) == string);
  const auto call = [&] {
    string = "";
    string = "a";
    string = kText10;
  };
  EXPECT_EQ(StepsOf(call), "+2 -2 +11 ");
  EXPECT_STREQ(string.Cstr(), kText10);
}

TEST(TsStringHeap, FailedNew) {
  const TsString other(kText10);
  EXPECT_EQ(StepsOf([] { const TsString string(kText10); }, 0), "throws");
  EXPECT_EQ(StepsOf([&] { const TsString string(other); }, 0), "throws");
}

TEST(TsStringHeap, FailedAssign) {
  const TsString other(kText30);
  for (const char* before : {"", kText10, kText20}) {
    SCOPED_TRACE(before);
    const std::string expected = *before == '\0' ? "throws" : "-old throws";
    TsString string(before);
    EXPECT_EQ(StepsOf([&] { string = kText30; }, 0), expected);
    ExpectEmptyAndUsable(string);
    TsString copy(before);
    EXPECT_EQ(StepsOf([&] { copy = other; }, 0), expected);
    ExpectEmptyAndUsable(copy);
    EXPECT_STREQ(other.Cstr(), kText30);
  }
}

// ---- pairs ----

class TsStringPairHeap : public testing::Test {
 protected:
  TsStringPairHeap() {
    source.first = kText10;
    source.second = kText20;
  }

  TsStringPair source;
};

TEST_F(TsStringPairHeap, Copy) {
  const auto copy = [this] { const TsStringPair made(source); };
  const auto move = [this] { const TsStringPair made(std::move(source)); };
  EXPECT_EQ(StepsOf(copy), "+11 +21 -21 -11 ");
  EXPECT_EQ(StepsOf(move), "+11 +21 -21 -11 ");
  EXPECT_EQ(StepsOf(copy, 0), "throws");
  EXPECT_EQ(StepsOf(copy, 1), "+11 -11 throws");
  EXPECT_EQ(StepsOf(move, 1), "+11 -11 throws");
}

TEST_F(TsStringPairHeap, Assign) {
  TsStringPair copied;
  TsStringPair moved;
  const auto call = [&] {
    copied = source;
    moved = std::move(source);
    copied = moved;
  };
  EXPECT_EQ(StepsOf(call), "+11 +21 +11 +21 ");
  TsStringPair target;
  EXPECT_EQ(StepsOf([&] { target = copied; }, 1), "+11 throws");
  EXPECT_STREQ(target.first.Cstr(), kText10);
  ExpectEmptyAndUsable(target.second);
}

}  // namespace
