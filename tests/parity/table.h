// A table with one line per input: functions, inputs and results. Systems with the same results
// write the same table.

#ifndef TARSIO_COMMON_TESTS_PARITY_TABLE_H_
#define TARSIO_COMMON_TESTS_PARITY_TABLE_H_

#include <cstddef>
#include <cstdint>
#include <exception>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

namespace tarsio_test {

// Printable ASCII is unchanged; other bytes become %XX.
inline std::string Shown(const std::string& text) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string shown = "'";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7F && c != '%' && c != '\'') {
      shown += c;
    } else {
      shown += {'%', kDigits[byte >> 4], kDigits[byte & 0x0F]};
    }
  }
  return shown + '\'';
}
inline std::string Shown(const char* text) { return Shown(std::string(text)); }
inline std::string Shown(bool value) { return value ? "true" : "false"; }

template <typename Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
std::string Shown(Number number) {
  return std::to_string(number);
}

template <typename Enum, std::enable_if_t<std::is_enum_v<Enum>, int> = 0>
std::string Shown(Enum value) {
  return std::to_string(static_cast<int>(value));
}

// Wide characters differ in size between the systems, so their units are printed as numbers.
template <typename Unit, std::enable_if_t<!std::is_same_v<Unit, char>, int> = 0>
std::string Shown(const std::basic_string<Unit>& units) {
  std::string shown = "<";
  for (const Unit unit : units) {
    shown += (shown.size() == 1 ? "" : " ") + std::to_string(static_cast<uint32_t>(unit));
  }
  return shown + '>';
}

inline std::string Shown(const std::vector<std::string>& texts) {
  std::string shown = "[";
  for (const std::string& text : texts) shown += (shown.size() == 1 ? "" : ", ") + Shown(text);
  return shown + ']';
}

template <typename... Values>
std::string Shown(const std::tuple<Values...>& values) {
  return std::apply([](const auto&... each) { return ((Shown(each) + ' ') + ...); }, values);
}

class Table {
 public:
  // Binary mode, so that line ends are the same everywhere.
  explicit Table(const char* file) : out(file, std::ios::binary) {}

  // Writes one line: the result of `call`, or the message of its exception.
  template <typename Call, typename... Inputs>
  void Add(const char* function, Call call, const Inputs&... inputs) {
    out << function;
    ((out << ' ' << Shown(inputs)), ...);
    out << " => ";
    try {
      out << Shown(call());
    } catch (const std::exception& error) {
      out << "throws " << Shown(error.what());
    }
    out << '\n';
    ++count;
  }

  // Returns the number of lines, or 0 if writing has failed.
  size_t Finish() { return out.flush() ? count : 0; }

 private:
  std::ofstream out;
  size_t count = 0;
};

// Random strings that are the same on every run and system: the standard defines the engine's raw
// output, but not that of the distributions.
class Random {
 public:
  size_t Below(size_t limit) { return static_cast<size_t>(engine() % limit); }

  // Concatenates up to `longest` of the pieces.
  std::string Text(const std::vector<std::string>& pieces, size_t longest) {
    std::string text;
    for (size_t left = Below(longest + 1); left > 0; --left) text += pieces[Below(pieces.size())];
    return text;
  }

  std::string Bytes(size_t longest) {
    std::string bytes(Below(longest + 1), '\0');
    for (char& byte : bytes) byte = static_cast<char>(Below(256));
    return bytes;
  }

 private:
  std::mt19937_64 engine{20240305};
};

// The rows of the log.
void AddLogLines(Table& table);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_PARITY_TABLE_H_
