#include "common/ts_string.h"

#include <cstring>

namespace tarsio {

namespace {

// The limit for C strings. Copies of TsString objects have no limit.
constexpr size_t kMaxLength = 0xFFFFFE;

size_t CappedLength(const char* text) {
  if (text == nullptr) return 0;
  const void* const end = std::memchr(text, '\0', kMaxLength);
  return end == nullptr ? kMaxLength : static_cast<size_t>(static_cast<const char*>(end) - text);
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

// NOLINTNEXTLINE(*-self-assignment,cert-oop54-cpp): PutData() handles overlap
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

// Frees the buffer and leaves the string empty.
void TsString::Release() {
  if (data != &inlineBuffer) ::operator delete(data);
  Init();
}

// `source` has at least `count` bytes before its terminator.
void TsString::PutData(const char* source, size_t count) {
  if (count > capacity - 1) {
    Release();  // first, so that the string is empty if the allocation fails
    data = static_cast<char*>(::operator new(count + 1));
    capacity = count + 1;
  }
  // The source may overlap this buffer, but only if nothing was released above.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDelete): it does not see that
  if (count > 0) std::memmove(data, source, count);
  data[count] = '\0';
}

TsStringPair::TsStringPair() = default;
TsStringPair::TsStringPair(const TsStringPair& other) = default;
// NOLINTNEXTLINE(performance-*,cert-oop11-cpp): the interface requires a copy
TsStringPair::TsStringPair(TsStringPair&& other) : TsStringPair(other) {}
TsStringPair& TsStringPair::operator=(const TsStringPair& other) = default;
// NOLINTNEXTLINE(performance-noexcept-move-constructor): the interface requires a copy
TsStringPair& TsStringPair::operator=(TsStringPair&& other) { return *this = other; }
TsStringPair::~TsStringPair() = default;

}  // namespace tarsio
