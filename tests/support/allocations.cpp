#include "support/allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

#if defined(__has_feature)
#define TARSIO_TEST_HAS_FEATURE(feature) __has_feature(feature)
#else
#define TARSIO_TEST_HAS_FEATURE(feature) 0
#endif

namespace {

std::atomic<bool> watching{false};
std::atomic<size_t> live{0};
std::atomic<size_t> count{0};
std::atomic<size_t> firstRefused{SIZE_MAX};
std::atomic<size_t> refusals{SIZE_MAX};
thread_local void (*atNext)() = nullptr;

}  // namespace

#if defined(__SANITIZE_THREAD__) || TARSIO_TEST_HAS_FEATURE(thread_sanitizer)

const bool tarsio_test::kAllocationsAreSeen = false;

#else

const bool tarsio_test::kAllocationsAreSeen = true;

// The nothrow forms call these two.
void* operator new(size_t size) {
  if (atNext != nullptr) std::exchange(atNext, nullptr)();
  if (watching) {
    const size_t index = count++;
    if (index >= firstRefused && index - firstRefused < refusals) throw std::bad_alloc();
  }
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  ++live;
  return memory;
}

void operator delete(void* memory) noexcept {
  if (memory != nullptr) --live;
  std::free(memory);
}
void operator delete(void* memory, size_t /*size*/) noexcept { operator delete(memory); }

// A sanitizer's array forms do not call the scalar ones.
void* operator new[](size_t size) { return operator new(size); }
void operator delete[](void* memory) noexcept { operator delete(memory); }
void operator delete[](void* memory, size_t /*size*/) noexcept { operator delete(memory); }

#endif

#if defined(_WIN32) && !defined(TARSIO_COMMON_STATIC)
const bool tarsio_test::kAllocationsOfTheLibraryAreSeen = false;
#else
const bool tarsio_test::kAllocationsOfTheLibraryAreSeen = tarsio_test::kAllocationsAreSeen;
#endif

namespace tarsio_test {

size_t LiveAllocations() { return live; }

AllocationWatch::AllocationWatch(size_t allowed, size_t refused) {
  count = 0;
  firstRefused = allowed;
  refusals = refused;
  watching = true;
}

AllocationWatch::~AllocationWatch() { watching = false; }

size_t AllocationWatch::Count() const { return count; }

void AtNextAllocation(void (*function)()) { atNext = function; }

}  // namespace tarsio_test
