#include "common/ts_string.h"

#include <cstring>

namespace tarsio {

namespace {

// The longest text that is taken from outside; copies of strings have no limit.
constexpr size_t kLongestText = 0xFFFFFE;

size_t CappedLength(const char* text) {
  if (text == nullptr) return 0;
  const void* const end = std::memchr(text, '\0', kLongestText);
  return end == nullptr ? kLongestText : static_cast<size_t>(static_cast<const char*>(end) - text);
}

}  // namespace

// NOLINTBEGIN(*-member-init): Init() sets every field
TsString::TsString() { Init(); }
TsString::TsString(const char* text) {
  Init();
  PutData(text, CappedLength(text));
}
TsString::TsString(const TsString& other) {
  Init();
  PutData(other.Cstr(), other.Length());
}
// NOLINTEND(*-member-init)
TsString::~TsString() { Release(); }

// NOLINTNEXTLINE(*-self-assignment,cert-oop54-cpp): the text is then copied onto itself
TsString& TsString::operator=(const TsString& other) {
  PutData(other.Cstr(), other.Length());
  return *this;
}

TsString& TsString::operator=(const char* text) {
  PutData(text, CappedLength(text));
  return *this;
}

const char* TsString::Cstr() const { return data; }
size_t TsString::Length() const { return std::strlen(data); }
bool TsString::IsEmpty() const { return Length() == 0; }

bool TsString::operator==(const TsString& other) const {
  return std::strcmp(data, other.data) == 0;
}
bool TsString::operator!=(const TsString& other) const { return !(*this == other); }

// Gives the buffer up and leaves the empty string.
void TsString::Release() {
  if (data != &inlineBuffer) ::operator delete(data);
  Init();
}

// `source` has at least `count` bytes before its terminator.
void TsString::PutData(const char* source, size_t count) {
  if (count > capacity - 1) {
    Release();  // first, so that a string for which there is no memory is the empty one
    data = static_cast<char*>(::operator new(count + 1));
    capacity = count + 1;
  }
  // The source may lie in this very buffer, but not in one that was too small and has been
  // released. NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete): it does not see that
  if (count > 0) std::memmove(data, source, count);
  data[count] = '\0';
}

TsStringPair::TsStringPair() = default;
TsStringPair::TsStringPair(const TsStringPair& other) = default;
// NOLINTNEXTLINE(performance-*,cert-oop11-cpp): copies, by interface
TsStringPair::TsStringPair(TsStringPair&& other) : TsStringPair(other) {}
TsStringPair& TsStringPair::operator=(const TsStringPair& other) = default;
// NOLINTNEXTLINE(performance-noexcept-move-constructor): copies, by interface
TsStringPair& TsStringPair::operator=(TsStringPair&& other) { return *this = other; }
TsStringPair::~TsStringPair() = default;

}  // namespace tarsio
