#include "message_format.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string_view>

namespace tarsio {

namespace {

enum class Length { kNone, kChar, kShort, kLong, kLongLong, kLongDouble, kMax, kSize, kDifference };

// Values of a width or precision that is not a number in the format.
constexpr int kNotGiven = -1;
constexpr int kInArguments = -2;

// Printed for a null string, unless the precision is smaller.
constexpr std::string_view kNullString = "(null)";

// One conversion: "%-08.3lld".
struct Conversion {
  std::string_view text;
  std::string_view flags;
  int width = kNotGiven;
  int precision = kNotGiven;
  Length length = Length::kNone;
  bool hasForeignLength = false;  // one that not every C library supports
  char type = '\0';               // stays '\0' if the format ends first

  bool HasFlag(char flag) const { return flags.find(flag) != std::string_view::npos; }
  bool IsWide() const {
    return type == 'C' || type == 'S' || (length == Length::kLong && (type == 'c' || type == 's'));
  }

  // Other conversions, such as %n, never reach the C library.
  bool IsKnown() const {
    switch (type) {
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        return length != Length::kLongDouble;
      case 'a':
      case 'A':
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
        return length == Length::kNone || length == Length::kLong || length == Length::kLongDouble;
      case 'c':
      case 's':
        return length == Length::kNone || length == Length::kShort || length == Length::kLong;
      case 'C':
      case 'S':
      case 'm':
      case 'p':
      case '%':
        return length == Length::kNone;
      default:
        return false;
    }
  }

  bool IsUnsigned() const { return type == 'o' || type == 'u' || type == 'x' || type == 'X'; }

  // Whether C libraries may format it differently: signs of unsigned numbers, an octal zero with
  // precision 0, a truncated null string.
  bool IsContested() const {
    if (type == 's') return precision >= 0 && precision < static_cast<int>(kNullString.size());
    return IsUnsigned() && (HasFlag('+') || HasFlag(' ') || (type == 'o' && HasFlag('#')));
  }

  // Whether all C libraries format it in the same way and support its width and precision.
  bool IsPlain() const {
    constexpr int kMost = static_cast<int>(kLongestMessage);
    return IsKnown() && !hasForeignLength && !IsWide() && !IsContested() && width != kInArguments &&
           precision != kInArguments && width <= kMost && precision <= kMost;
  }
};

// Parses a number, clamped to INT_MAX, or "*". Returns `missing` if neither is there.
int ParseNumber(const char*& next, int missing) {
  if (*next == '*') {
    ++next;
    return kInArguments;
  }
  if (*next < '0' || *next > '9') return missing;
  int64_t number = 0;
  for (; *next >= '0' && *next <= '9'; ++next) {
    number = std::min<int64_t>(number * 10 + (*next - '0'), INT_MAX);
  }
  return static_cast<int>(number);
}

struct LengthName {
  std::string_view text;
  Length length;
  bool isForeign;
};

constexpr LengthName kLengthNames[] = {
    {"hh", Length::kChar, false},      {"h", Length::kShort, false},
    {"ll", Length::kLongLong, false},  {"l", Length::kLong, false},
    {"L", Length::kLongDouble, false}, {"j", Length::kMax, false},
    {"z", Length::kSize, false},       {"t", Length::kDifference, false},
    {"I64", Length::kLongLong, true},  {"I32", Length::kNone, true},
    {"I", Length::kNone, true},        {"q", Length::kLongLong, true},
    {"Z", Length::kSize, true},        {"", Length::kNone, false}};

bool BeginsWith(const char* s, std::string_view prefix) {
  return std::mismatch(prefix.begin(), prefix.end(), s).first == prefix.end();
}

const LengthName& ParseLength(const char*& next) {
  const LengthName* row = kLengthNames;
  while (!BeginsWith(next, row->text)) ++row;
  next += row->text.size();
  return *row;
}

bool IsFlag(char c) {
  return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '\'';
}

// The conversion that begins with the "%" at `percent`.
Conversion Parse(const char* percent) {
  Conversion conversion;
  const char* next = percent + 1;
  while (IsFlag(*next)) ++next;
  conversion.flags = {percent + 1, static_cast<size_t>(next - percent - 1)};
  conversion.width = ParseNumber(next, kNotGiven);
  if (*next == '.') conversion.precision = ParseNumber(++next, 0);
  const LengthName& length = ParseLength(next);
  conversion.length = length.length;
  conversion.hasForeignLength = length.isForeign;
  conversion.type = *next;
  if (*next != '\0') ++next;
  conversion.text = {percent, static_cast<size_t>(next - percent)};
  return conversion;
}

bool AllArePlain(const char* format) {
  while ((format = std::strchr(format, '%')) != nullptr) {
    const Conversion conversion = Parse(format);
    if (!conversion.IsPlain()) return false;
    format += conversion.text.size();
  }
  return true;
}

// Formats one conversion at a time, each with a width and a precision that every C library
// supports.
class CarefulFormatter {
 public:
  // Reads from `arguments`. The caller calls va_end().
  CarefulFormatter(MessageBuffer& target, va_list* arguments) : buffer(target), args(arguments) {}

  bool Format(const char* format) {
    while (const char* const percent = std::strchr(format, '%')) {
      const Conversion conversion = Parse(percent);
      const std::string_view before(format, static_cast<size_t>(percent - format));
      if (!Append(before) || !AppendConversion(conversion)) return false;
      format = percent + conversion.text.size();
    }
    return Append(format);
  }

 private:
  // A conversion whose width and precision are known.
  struct Field {
    const Conversion& conversion;
    bool left;
    int width;
    int precision;
  };

  template <typename T>
  T Next() {
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): FormatLogMessage() has copied it
    return va_arg(*args, T);
  }

  // Each function returns false if the message gets too long or cannot be formatted.

  bool Append(std::string_view text) {
    if (text.size() > kLongestMessage - used) return false;
    text.copy(buffer.data() + used, text.size());
    used += text.size();
    buffer[used] = '\0';
    return true;
  }

  bool AppendConversion(const Conversion& conversion) {
    if (!conversion.IsKnown()) return false;
    int64_t width = std::max(conversion.width, 0);
    if (conversion.width == kInArguments) width = Next<int>();
    int precision = conversion.precision;
    if (precision == kInArguments) precision = std::max(Next<int>(), kNotGiven);
    if (conversion.type == '%') return Append("%");
    if (std::abs(width) > static_cast<int64_t>(kLongestMessage)) return false;

    // No value has more significant digits than this, so results that fit do not change.
    constexpr int kMostPrecision = 17000;
    const Field field{conversion, conversion.HasFlag('-') || width < 0,
                      static_cast<int>(std::abs(width)), std::min(precision, kMostPrecision)};
    return conversion.IsWide() ? AppendWide(field) : AppendNarrow(field);
  }

  bool AppendNarrow(const Field& field) {
    switch (field.conversion.type) {
      case 'd':
      case 'i':
        return AppendInteger<int, long, long long, intmax_t, ptrdiff_t>(field);
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        return AppendInteger<unsigned, unsigned long, unsigned long long, uintmax_t, size_t>(field);
      case 'a':
      case 'A':
      case 'e':
      case 'E':
      case 'f':
      case 'F':
      case 'g':
      case 'G':
        return field.conversion.length == Length::kLongDouble
                   ? Print(field, "L", Next<long double>())
                   : Print(field, "", Next<double>());
      case 'c':
        return Print(field, "", Next<int>());
      case 's':
        return AppendString(field, Next<const char*>());
      case 'p':
        return Print(field, "", Next<void*>());
      default:  // 'm', which takes no argument
        return Print(field, "", 0);
    }
  }

  bool AppendString(const Field& field, const char* text) {
    const bool cut = field.precision >= 0 && field.precision < static_cast<int>(kNullString.size());
    return Print(field, "", text != nullptr ? text : cut ? "" : kNullString.data());
  }

  template <typename Int, typename Long, typename LongLong, typename Max, typename Size>
  bool AppendInteger(const Field& field) {
    switch (field.conversion.length) {
      case Length::kChar:
        return Print(field, "hh", Next<Int>());
      case Length::kShort:
        return Print(field, "h", Next<Int>());
      case Length::kLong:
        return Print(field, "l", Next<Long>());
      case Length::kLongLong:
        return Print(field, "ll", Next<LongLong>());
      case Length::kMax:
        return Print(field, "j", Next<Max>());
      case Length::kSize:
      case Length::kDifference:
        return Print(field, "z", Next<Size>());
      default:
        return Print(field, "", Next<Int>());
    }
  }

  // Formats `value` with the C library. Width and precision are written as numbers, since one
  // library treats "*" differently.
  template <typename Value>
  bool Print(const Field& field, const char* length, Value value) {
    char format[32] = "%";
    char* end = format + 1;
    for (const char flag : {'-', '+', ' ', '#', '0', '\''}) {
      if ((flag == '+' || flag == ' ') && field.conversion.IsUnsigned()) continue;
      if (field.conversion.HasFlag(flag) || (flag == '-' && field.left)) *end++ = flag;
    }
    if (field.width > 0) end = AppendNumber(end, field.width);
    if (field.precision != kNotGiven) {
      const bool octalZero = field.conversion.type == 'o' && field.conversion.HasFlag('#') &&
                             value == Value{};  // the zero counts as a digit
      *end++ = '.';
      end = AppendNumber(end, octalZero ? std::max(field.precision, 1) : field.precision);
    }
    end = std::copy_n(length, std::strlen(length), end);
    *end = field.conversion.type;
    const size_t room = buffer.size() - used;
    const int size = std::snprintf(buffer.data() + used, room, format, value);
    if (size < 0 || static_cast<size_t>(size) >= room) return false;
    used += static_cast<size_t>(size);
    return true;
  }

  static char* AppendNumber(char* place, int number) {
    constexpr int kMostDigits = 10;
    return std::to_chars(place, place + kMostDigits, number).ptr;
  }

  bool AppendWide(const Field& field) {
    std::array<char, kLongestMessage + MB_LEN_MAX> bytes;  // NOLINT(*-member-init): written first
    size_t size = 0;
    if (field.conversion.type == 'c' || field.conversion.type == 'C') {
      // wint_t is passed as an int on every system.
      const auto character = static_cast<wchar_t>(Next<int>());
      std::mbstate_t state{};
      size = Encode(character, bytes.data(), &state);
      if (size == kNotEncodable) return false;
    } else if (!Encode(Next<const wchar_t*>(), field.precision, bytes.data(), &size)) {
      return false;
    }
    const size_t spaces = static_cast<size_t>(field.width) - std::min(size, size_t(field.width));
    if (!field.left && !AppendSpaces(spaces)) return false;
    if (!Append({bytes.data(), size})) return false;
    return !field.left || AppendSpaces(spaces);
  }

  static constexpr auto kNotEncodable = static_cast<size_t>(-1);

  // Returns the number of bytes, at most MB_LEN_MAX, or kNotEncodable.
  static size_t Encode(wchar_t character, char* bytes, std::mbstate_t* state) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): safe, since the caller passes the state
    return std::wcrtomb(bytes, character, state);
  }

  // Encodes whole characters of `text`, to at most `precision` bytes.
  static bool Encode(const wchar_t* text, int precision, char* bytes, size_t* size) {
    if (text == nullptr) text = L"(null)";
    const size_t most = precision == kNotGiven ? SIZE_MAX : static_cast<size_t>(precision);
    std::mbstate_t state{};
    for (; *size < most && *text != L'\0'; ++text) {
      if (*size > kLongestMessage) return false;
      const size_t length = Encode(*text, bytes + *size, &state);
      if (length == kNotEncodable) return false;
      if (length > most - *size) break;
      *size += length;
    }
    return true;
  }

  bool AppendSpaces(size_t count) {
    if (count > kLongestMessage - used) return false;
    std::fill_n(buffer.data() + used, count, ' ');
    used += count;
    buffer[used] = '\0';
    return true;
  }

  MessageBuffer& buffer;
  va_list* const args;
  size_t used = 0;
};

}  // namespace

bool FormatLogMessage(MessageBuffer& buffer, const char* format, va_list args) {
  if (AllArePlain(format)) {
    const int size = std::vsnprintf(buffer.data(), buffer.size(), format, args);
    return size >= 0 && static_cast<size_t>(size) < buffer.size();
  }
  va_list own;  // a va_list parameter may be a pointer; a local variable has the array type
  va_copy(own, args);
  const bool formatted = CarefulFormatter(buffer, &own).Format(format);
  va_end(own);
  return formatted;
}

}  // namespace tarsio
