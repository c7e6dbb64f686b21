// Every allocation of the boundary strings, and their state after a failed one. Their source is
// compiled into this program, since the library may have its own allocator.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "common/ts_string.h"

namespace {

using tarsio::TsString;
using tarsio::TsStringPair;

// An allocation or a deallocation of `size` bytes.
struct Step {
  bool isAllocation;
  size_t size;
  void* memory;
};

Step Allocates(size_t size) { return {true, size, nullptr}; }
Step Frees(size_t size) { return {false, size, nullptr}; }

bool operator==(const Step& left, const Step& right) {
  return left.isAllocation == right.isAllocation && left.size == right.size;
}

std::ostream& operator<<(std::ostream& stream, const Step& step) {
  return stream << (step.isAllocation ? "allocates " : "frees ") << step.size;
}

// Records the steps from construction to Stop(). Does not allocate, and neither may the test
// meanwhile, expectations included. Only one object may exist at a time.
class Allocations {
 public:
  Allocations() { active = this; }
  Allocations(const Allocations&) = delete;
  Allocations& operator=(const Allocations&) = delete;
  ~Allocations() { active = nullptr; }

  std::vector<Step> Stop() {
    active = nullptr;
    return {steps, steps + count};
  }

  // Lets the next `allowed` allocations succeed and fails all later ones.
  void RefuseAfter(int allowed) { left = allowed; }

  // Returns whether the allocation has to fail.
  static bool Refuses() {
    if (active == nullptr || active->left < 0) return false;
    if (active->left == 0) return true;
    --active->left;
    return false;
  }
  static void Allocated(size_t size, void* memory) {
    if (active != nullptr) active->Add({true, size, memory});
  }
  // The size is that of the latest allocation at this address, or 0 if it predates this object.
  static void Freed(void* memory) {
    if (active == nullptr || memory == nullptr) return;
    size_t size = 0;
    for (size_t i = 0; i < active->count; ++i) {
      const Step& step = active->steps[i];
      if (step.isAllocation && step.memory == memory) size = step.size;
    }
    active->Add({false, size, memory});
  }

 private:
  void Add(const Step& step) {
    if (count == kMostSteps) std::abort();
    steps[count++] = step;
  }

  static constexpr size_t kMostSteps = 64;
  static Allocations* active;

  Step steps[kMostSteps] = {};
  size_t count = 0;
  int left = -1;  // allocations before the first refusal; < 0: none fails
};

Allocations* Allocations::active = nullptr;

void* Allocate(size_t size) {
  void* const memory = Allocations::Refuses() ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  Allocations::Allocated(size, memory);
  return memory;
}

void Free(void* memory) {
  Allocations::Freed(memory);
  std::free(memory);
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { Free(memory); }
void operator delete[](void* memory) noexcept { Free(memory); }
void operator delete(void* memory, size_t /*size*/) noexcept { Free(memory); }
void operator delete[](void* memory, size_t /*size*/) noexcept { Free(memory); }

namespace {

using Steps = std::vector<Step>;

const char* const kNull = nullptr;
const char* const kText10 = "0123456789";
const char* const kText20 = "01234567890123456789";
const char* const kText30 = "012345678901234567890123456789";

TEST(TsStringHeap, Empty) {
  Allocations allocations;
  {
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
  }
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, Steps());
}

TEST(TsStringHeap, Length) {
  Allocations allocations;
  {
    const TsString string(kText10);
    const TsString copy(string);
    TsString assigned;
    assigned = kText20;
    TsString assignedString;
    assignedString = assigned;
  }
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, (Steps{Allocates(11), Allocates(11), Allocates(21), Allocates(21), Frees(21),
                          Frees(21), Frees(11), Frees(11)}));
}

TEST(TsStringHeap, Growth) {
  Allocations allocations;
  {
    TsString string(kText20);
    string = kText10;
    string = "";
    string = kNull;
    string = kText20;
    string = kText30;
    string = TsString(kText20);
  }
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps,
            (Steps{Allocates(21), Frees(21), Allocates(31), Allocates(21), Frees(21), Frees(31)}));
}

TEST(TsStringHeap, SelfAssign) {
  TsString string(kText20);
  const TsString& same = string;
  Allocations allocations;
  string = same;
  string = string.Cstr();
  string = string.Cstr() + 5;
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, Steps());
  EXPECT_STREQ(string.Cstr(), kText20 + 5);
}

TEST(TsStringHeap, Observers) {
  const TsString string(kText20);
  const TsString other(kText20);
  Allocations allocations;
  const bool observed = string == other && !(string != other) && !string.IsEmpty() &&
                        string.Length() == 20 && string.Cstr() != nullptr;
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, Steps());
  EXPECT_TRUE(observed);
}

TEST(TsStringHeap, Limit) {
  const std::string text(16777214 + 100, 'a');
  Allocations allocations;
  { const TsString string(text.c_str()); }
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, (Steps{Allocates(16777215), Frees(16777215)}));
}

class DerivedString : public TsString {
 public:
  using TsString::TsString;
};

TEST(TsStringHeap, Destructor) {
  Allocations allocations;
  const TsString* const string = new DerivedString(kText10);
  delete string;
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, (Steps{Allocates(sizeof(DerivedString)), Allocates(11), Frees(11),
                          Frees(sizeof(DerivedString))}));
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

TEST_F(TsStringPairHeap, CopyOrder) {
  Allocations allocations;
  { const TsStringPair copy(source); }
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, (Steps{Allocates(11), Allocates(21), Frees(21), Frees(11)}));
}

TEST_F(TsStringPairHeap, Move) {
  Allocations allocations;
  { const TsStringPair moved(std::move(source)); }
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, (Steps{Allocates(11), Allocates(21), Frees(21), Frees(11)}));
}

TEST_F(TsStringPairHeap, Assign) {
  TsStringPair copied;
  TsStringPair moved;
  Allocations allocations;
  copied = source;
  moved = std::move(source);
  copied = moved;
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, (Steps{Allocates(11), Allocates(21), Allocates(11), Allocates(21)}));
}

// ---- failed allocations ----

// Expects `call` to throw std::bad_alloc after `allowed` allocations. Returns the recorded steps.
template <typename Call>
Steps StepsUntilRefused(int allowed, const Call& call) {
  bool refused = false;
  Allocations allocations;
  allocations.RefuseAfter(allowed);
  try {
    call();
  } catch (const std::bad_alloc&) {
    refused = true;
  }
  Steps steps = allocations.Stop();
  EXPECT_TRUE(refused);
  return steps;
}

void ExpectEmptyAndUsable(TsString& string) {
  ASSERT_NE(string.Cstr(), nullptr);
  EXPECT_STREQ(string.Cstr(), "");
  EXPECT_EQ(string.Length(), 0U);
  EXPECT_TRUE(string.IsEmpty());
  EXPECT_TRUE(string == TsString());
  EXPECT_TRUE(TsString(string) == string);

  Allocations allocations;
  string = "";
  string = "a";
  string = kText10;
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, (Steps{Allocates(2), Frees(2), Allocates(11)}));
  EXPECT_STREQ(string.Cstr(), kText10);
}

TEST(TsStringHeap, FailedNew) {
  const TsString other(kText10);
  EXPECT_EQ(StepsUntilRefused(0, [] { const TsString string(kText10); }), Steps());
  EXPECT_EQ(StepsUntilRefused(0, [&other] { const TsString string(other); }), Steps());
}

TEST(TsStringHeap, FailedAssign) {
  for (const char* before : {"", kText10, kText20}) {
    SCOPED_TRACE(before);
    TsString string(before);
    const size_t buffers = *before == '\0' ? 0 : 1;
    EXPECT_EQ(StepsUntilRefused(0, [&string] { string = kText30; }).size(), buffers);
    ExpectEmptyAndUsable(string);
  }
}

TEST(TsStringHeap, FailedCopy) {
  const TsString other(kText30);
  for (const char* before : {"", kText10, kText20}) {
    SCOPED_TRACE(before);
    TsString string(before);
    const size_t buffers = *before == '\0' ? 0 : 1;
    EXPECT_EQ(StepsUntilRefused(0, [&] { string = other; }).size(), buffers);
    ExpectEmptyAndUsable(string);
    EXPECT_STREQ(other.Cstr(), kText30);
  }
}

TEST(TsStringHeap, NoMemory) {
  TsString string(kText20);
  const TsString other(kText10);
  Allocations allocations;
  allocations.RefuseAfter(0);
  string = other;
  string = kText20;
  const Steps steps = allocations.Stop();
  EXPECT_EQ(steps, Steps());
  EXPECT_STREQ(string.Cstr(), kText20);
}

TEST_F(TsStringPairHeap, NoCopy) {
  EXPECT_EQ(StepsUntilRefused(0, [this] { const TsStringPair copy(source); }), Steps());
  EXPECT_EQ(StepsUntilRefused(1, [this] { const TsStringPair copy(source); }),
            (Steps{Allocates(11), Frees(11)}));
  EXPECT_EQ(StepsUntilRefused(1, [this] { const TsStringPair moved(std::move(source)); }),
            (Steps{Allocates(11), Frees(11)}));
}

TEST_F(TsStringPairHeap, NoAssign) {
  TsStringPair target;
  EXPECT_EQ(StepsUntilRefused(1, [&] { target = source; }), Steps{Allocates(11)});
  EXPECT_STREQ(target.first.Cstr(), kText10);
  ExpectEmptyAndUsable(target.second);
}

}  // namespace
