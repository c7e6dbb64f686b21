#include <algorithm>
#include <clocale>
#include <cstring>
#include <locale>
#include <memory>
#include <stdexcept>

#include "platform/platform.h"
#include "platform/windows/windows_api.h"

namespace tarsio::platform {

namespace {

// Between wide characters and the user's ANSI code page: the C++ runtime here knows the classic
// locale only.
class AnsiFacet : public std::codecvt<wchar_t, char, std::mbstate_t> {
 public:
  AnsiFacet() : codePage(::GetACP()) {
    CPINFO info{};
    if (::GetCPInfo(codePage, &info) != 0) longestCharacter = static_cast<int>(info.MaxCharSize);
  }

 protected:
  result do_in(state_type& /*state*/, const char* from, const char* fromEnd, const char*& fromNext,
               wchar_t* to, wchar_t* toEnd, wchar_t*& toNext) const override {
    fromNext = from;
    toNext = to;
    while (fromNext != fromEnd) {
      if (toNext == toEnd) return partial;
      const int left = static_cast<int>(std::min<ptrdiff_t>(fromEnd - fromNext, longestCharacter));
      const int room = static_cast<int>(std::min<ptrdiff_t>(toEnd - toNext, 2));
      int length = 1;
      int units = 0;
      while (length <= left && (units = Decode(fromNext, length, toNext, room)) == 0) ++length;
      if (units == 0) return left < longestCharacter && IsLead(*fromNext) ? partial : error;
      fromNext += length;
      toNext += units;
    }
    return ok;
  }

  result do_out(state_type& /*state*/, const wchar_t* from, const wchar_t* fromEnd,
                const wchar_t*& fromNext, char* to, char* toEnd, char*& toNext) const override {
    fromNext = from;
    toNext = to;
    while (fromNext != fromEnd) {
      const int units = IsHighSurrogate(*fromNext) && fromEnd - fromNext > 1 ? 2 : 1;
      char bytes[8];
      const int length = Encode(fromNext, units, bytes, sizeof bytes);
      if (length == 0) return error;
      if (toEnd - toNext < length) return partial;
      toNext = std::copy_n(bytes, length, toNext);
      fromNext += units;
    }
    return ok;
  }

  result do_unshift(state_type& /*state*/, char* to, char* /*toEnd*/,
                    char*& toNext) const override {
    toNext = to;
    return noconv;
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

  // Whether `byte` begins a longer character. IsDBCSLeadByteEx() does not know UTF-8.
  bool IsLead(char byte) const {
    if (codePage == CP_UTF8) return static_cast<unsigned char>(byte) >= 0xC2;
    return ::IsDBCSLeadByteEx(codePage, static_cast<BYTE>(byte)) != 0;
  }

  // One character of `length` bytes. Returns the number of units, or 0 if there is no such one.
  int Decode(const char* bytes, int length, wchar_t* units, int room) const {
    if (length == 1 && IsLead(*bytes)) return 0;
    return ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, bytes, length, units, room);
  }

  // Returns the number of bytes, or 0 if the code page has no such character.
  int Encode(const wchar_t* units, int count, char* bytes, int room) const {
    if (codePage == CP_UTF8) {  // which takes no default character
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
  // A locale that cannot be made has not taken the facet yet.
  auto facet = std::make_unique<AnsiFacet>();
  const std::locale user(std::locale::classic(), facet.get());
  static_cast<void>(facet.release());
  std::locale::global(user);
  return user;
}

bool RuntimeLocaleIsClassic() { return std::strcmp(std::setlocale(LC_CTYPE, nullptr), "C") == 0; }

}  // namespace tarsio::platform
