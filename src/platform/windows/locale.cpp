#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstring>
#include <locale>
#include <memory>
#include <stdexcept>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

namespace {

// Converts between wide characters and a code page. The C++ runtime supports only the classic
// locale here.
class CodePageFacet : public std::codecvt<wchar_t, char, std::mbstate_t> {
 public:
  explicit CodePageFacet(UINT page) : codePage(page) {
    CPINFO info{};
    if (::GetCPInfo(codePage, &info) != 0) longestCharacter = static_cast<int>(info.MaxCharSize);
  }

 protected:
  result do_in(state_type& /*state*/, const char* from, const char* fromEnd, const char*& fromNext,
               wchar_t* to, wchar_t* toEnd, wchar_t*& toNext) const override {
    fromNext = from;
    toNext = to;
    while (fromNext != fromEnd) {
      const ptrdiff_t left = fromEnd - fromNext;
      const int length = LengthByLead(*fromNext);
      if (left < length) return IsPrefix(fromNext, left, length) ? partial : error;
      wchar_t units[2];
      const int count = Decode(fromNext, length, units);
      if (count == 0) return error;
      if (toEnd - toNext < count) return partial;
      toNext = std::copy_n(units, count, toNext);
      fromNext += length;
    }
    return ok;
  }

  // A high surrogate is kept in the state until the low one arrives, perhaps with the next call.
  result do_out(state_type& state, const wchar_t* from, const wchar_t* fromEnd,
                const wchar_t*& fromNext, char* to, char* toEnd, char*& toNext) const override {
    toNext = to;
    for (fromNext = from; fromNext != fromEnd; ++fromNext) {
      const wchar_t units[] = {HighSurrogate(state), *fromNext};
      const bool isPair = units[0] != L'\0';
      if (!isPair && IsHighSurrogate(*fromNext)) {
        SetHighSurrogate(state, *fromNext);
        continue;
      }
      char bytes[8];
      const int length =
          isPair ? Encode(units, 2, bytes, sizeof bytes) : Encode(fromNext, 1, bytes, sizeof bytes);
      if (length == 0) return error;
      if (toEnd - toNext < length) return partial;
      toNext = std::copy_n(bytes, length, toNext);
      SetHighSurrogate(state, L'\0');
    }
    return ok;
  }

  result do_unshift(state_type& state, char* to, char* /*toEnd*/, char*& toNext) const override {
    toNext = to;
    return HighSurrogate(state) == L'\0' ? noconv : error;
  }

  int do_length(state_type& state, const char* from, const char* fromEnd,
                size_t most) const override {
    std::wstring units(std::min(most, static_cast<size_t>(fromEnd - from)), L'\0');
    const char* fromNext = from;
    wchar_t* toNext = &units[0];
    do_in(state, from, fromEnd, fromNext, toNext, toNext + units.size(), toNext);
    return static_cast<int>(fromNext - from);
  }

  int do_encoding() const noexcept override { return longestCharacter == 1 ? 1 : 0; }
  bool do_always_noconv() const noexcept override { return false; }
  int do_max_length() const noexcept override { return longestCharacter; }

 private:
  static bool IsHighSurrogate(wchar_t unit) { return unit >= 0xD800 && unit < 0xDC00; }

  static wchar_t HighSurrogate(const state_type& state) {
    wchar_t unit = L'\0';
    std::memcpy(&unit, &state, sizeof unit);
    return unit;
  }
  static void SetHighSurrogate(state_type& state, wchar_t unit) {
    std::memcpy(&state, &unit, sizeof unit);
  }

  // Returns the length in bytes of a character that begins with `lead`; 1 if it is not a lead byte.
  int LengthByLead(char lead) const {
    const auto byte = static_cast<unsigned char>(lead);
    if (codePage != CP_UTF8) return ::IsDBCSLeadByteEx(codePage, byte) != 0 ? 2 : 1;
    if (byte < 0xC2 || byte > 0xF4) return 1;
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
  }

  // Returns true if a character of `length` bytes can begin with these `count` bytes. The first
  // must be a lead byte.
  bool IsPrefix(const char* bytes, ptrdiff_t count, int length) const {
    if (count == 1) return true;
    // Only UTF-8 gets here. After the second byte any continuation byte is valid, so try with 0x80.
    char character[] = "\x80\x80\x80\x80";
    std::copy_n(bytes, count, character);
    wchar_t units[2];
    return Decode(character, length, units) != 0;
  }

  // Returns the number of units, or 0 if `bytes` is not a valid character. `units` has room for
  // two; they may be overwritten on failure as well.
  int Decode(const char* bytes, int length, wchar_t* units) const {
    return ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, bytes, length, units, 2);
  }

  // Returns the number of bytes, or 0 if the code page has no such character.
  int Encode(const wchar_t* units, int count, char* bytes, int room) const {
    if (codePage == CP_UTF8) {  // does not support `replaced`
      return ::WideCharToMultiByte(codePage, WC_ERR_INVALID_CHARS, units, count, bytes, room,
                                   nullptr, nullptr);
    }
    BOOL replaced = FALSE;
    const int length =
        ::WideCharToMultiByte(codePage, 0, units, count, bytes, room, nullptr, &replaced);
    return replaced != 0 ? 0 : length;
  }

  const UINT codePage;
  int longestCharacter = 1;
};

}  // namespace

std::locale MakeUserLocaleGlobal() {
  if (std::setlocale(LC_ALL, "") == nullptr) throw std::runtime_error("bad locale name");
  PinLibrary();  // the global locale keeps the facet, whose code is in the library
  // The runtime's locale is now the user's, but it does not support UTF-8, which the process may
  // have chosen as its code page.
  const UINT codePage = ::GetACP() == CP_UTF8 ? CP_UTF8 : ::___lc_codepage_func();
  // If the constructor throws, the locale does not own the facet yet.
  auto facet = std::make_unique<CodePageFacet>(codePage);
  const std::locale user(std::locale::classic(), facet.get());
  static_cast<void>(facet.release());
  std::locale::global(user);
  return user;
}

// Does not compare the locale's name: another thread's setlocale() may free it. The classic locale
// has no code page. The result is for this thread.
bool RuntimeLocaleIsClassic() { return ::___lc_codepage_func() == 0; }

}  // namespace tarsio::platform
