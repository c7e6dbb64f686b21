// Logs random file names, formats and arguments, and compares the lines with the C library's
// formatting.

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <optional>
#include <string>

#include "common/log.h"
#include "reference/path.h"
#include "require.h"
#include "support/recording_logger.h"

namespace tarsio_fuzz {

namespace {

using tarsio::LOG_LEVEL;

std::string callbackLine;
LOG_LEVEL threshold;

struct Message {
  LOG_LEVEL level;
  std::string file;
  int line;
  std::string format;
};

// For example "[2024-03-05 14:07:09.38]". Only the milliseconds vary in length.
void CheckTime(const std::string& time) {
  const std::string shape = "[0000-00-00 00:00:00.";
  Require(time.size() > shape.size() + 1 && time.size() <= shape.size() + 4, "length of the time");
  for (size_t i = 0; i < time.size(); ++i) {
    const bool digit = time[i] >= '0' && time[i] <= '9';
    if (i >= shape.size()) {
      Require(digit || (i + 1 == time.size() && time[i] == ']'), "milliseconds");
    } else {
      Require(shape[i] == '0' ? digit : time[i] == shape[i], "the form of the time");
    }
  }
  Require(time[shape.size()] != '0' || time.size() == shape.size() + 2, "no leading zeros");
}

std::string LevelName(int level) {
  const char* const names[] = {"FATAL", "ERROR", "WARN", "INFO", "DEBUG"};
  return level >= 0 && level <= 4 ? names[level] : "";
}

void CheckLine(const std::string& line, const Message& message, const std::string& text) {
  const size_t timeEnd = line.find(']') + 1;
  CheckTime(line.substr(0, timeEnd));
  reference::Path file;
  file.Set(message.file, 0);
  const std::string expected = '[' + LevelName(message.level) + "][" + file.Filename() + ':' +
                               std::to_string(message.line) + "] " + text;
  RequireEqual(line.substr(timeEnd), expected, "the line after the time");
}

// Checks that the message with `args` is logged as `text`, or as an empty string if that is too
// long.
template <typename... Args>
void CheckMessage(const Message& message, std::string text, Args... args) {
  const char* const format = message.format.c_str();
  const char* const file = message.file.c_str();
  if (text.size() > 2047) text.clear();
  text.resize(std::min(text.find('\0'), text.size()));

  const auto records = tarsio_test::LogRecords::Install(threshold);
  tarsio::Log::GetInstance().DoLog(message.level, file, message.line, "f", format, args...);
  callbackLine.clear();
  tarsio::TsLog(
      message.level, [](const char* line) { callbackLine = line; }, [] { return threshold; }, file,
      message.line, "f", format, args...);

  const auto logged = records->All();
  if (message.level > threshold) {
    Require(logged.empty() && callbackLine.empty(), "messages above the threshold are dropped");
    return;
  }
  RequireEqual(logged.size(), size_t{1}, "one line per message");
  CheckLine(logged[0].text, message, text);
  CheckLine(callbackLine, message, text);
}

std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// Returns the part that fits into a C string.
std::string UpToNul(const std::string& text) { return text.substr(0, text.find('\0')); }

std::string Literal(const std::string& text) {
  std::string literal;
  for (const char c : text) literal += c == '%' ? "%%" : std::string(1, c);
  return UpToNul(literal);
}

// A conversion without its length modifier and conversion letter.
struct Field {
  std::string flags;
  std::optional<int> width;
  std::optional<int> precision;
  bool inArguments;  // pass both numbers as arguments: "*.*"
};

int TakeNumber(FuzzedDataProvider& input) {
  return input.ConsumeBool() ? input.ConsumeIntegralInRange(0, 2100) : input.ConsumeIntegral<int>();
}

Field TakeField(FuzzedDataProvider& input, const std::string& flags, bool hasPrecision) {
  Field field{};
  for (const char flag : flags) {
    if (input.ConsumeBool()) field.flags += flag;
  }
  if (input.ConsumeBool()) field.width = TakeNumber(input);
  if (hasPrecision && input.ConsumeBool()) field.precision = TakeNumber(input);
  field.inArguments = input.ConsumeBool();
  return field;
}

// Logs "TEXT%..." with `value`, where TEXT contains no conversions. The expected result is that of
// snprintf() with limited numbers, since it may fail on huge ones.
template <typename Value>
void CheckConversion(Message message, Field field, const std::string& letters, Value value) {
  const std::string before = message.format;
  const int width = field.width.value_or(0);
  const int precision = std::max(field.precision.value_or(-1), -1);
  const bool left = width < 0 || field.flags.find('-') != std::string::npos;
  const bool tooWide = width > 2047 || width < -2047;

  std::string plain = '%' + field.flags + (left ? "-" : "");
  if (width != 0 && !tooWide) plain += std::to_string(std::abs(width));
  if (precision >= 0) plain += '.' + std::to_string(std::min(precision, 3000));
  plain += letters;
  std::string text(5000, '\0');
  const int length = std::snprintf(text.data(), text.size(), plain.c_str(), value);
  const bool tooLong = tooWide || length < 0 || length > 2047;
  const std::string literal = ReplaceAll(before, "%%", "%");
  text = tooLong || literal.size() + static_cast<size_t>(length) > 2047
             ? ""
             : literal + text.substr(0, static_cast<size_t>(length));

  if (field.inArguments) {
    message.format += '%' + field.flags + "*.*" + letters;
    CheckMessage(message, text, width, field.precision.value_or(-1), value);
    return;
  }
  message.format += plain.substr(0, 1 + field.flags.size() + (left ? 1U : 0U));
  if (width != 0) message.format += std::to_string(std::abs(int64_t{width}));
  if (precision >= 0) message.format += '.' + std::to_string(precision);
  message.format += letters;
  CheckMessage(message, text, value);
}

std::string LocaleBytes(std::wint_t character, bool* encodes) {
  std::array<char, MB_LEN_MAX> bytes{};
  std::mbstate_t state{};
  const size_t size = std::wcrtomb(bytes.data(), static_cast<wchar_t>(character), &state);
  *encodes = size != static_cast<size_t>(-1);
  return *encodes ? std::string(bytes.data(), size) : std::string();
}

// The C libraries differ in this conversion.
void CheckWideCharacter(Message message, const Field& field, std::wint_t character) {
  bool encodes = false;
  std::string bytes = LocaleBytes(character, &encodes);
  const int width = field.width.value_or(0);
  const bool left = width < 0 || !field.flags.empty();
  const int64_t most = std::abs(int64_t{width});
  std::string text = ReplaceAll(message.format, "%%", "%");
  const bool tooWide = most > 2047;
  const std::string spaces(
      tooWide ? 0 : static_cast<size_t>(std::max<int64_t>(most - int64_t(bytes.size()), 0)), ' ');
  text = !encodes || tooWide ? "" : text + (left ? bytes + spaces : spaces + bytes);
  message.format += '%' + field.flags + "*lc";
  CheckMessage(message, text, width, character);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  threshold = static_cast<LOG_LEVEL>(input.ConsumeIntegralInRange(-2, 7));
  Message message;
  message.level = static_cast<LOG_LEVEL>(input.ConsumeIntegralInRange(-3, 8));
  message.file = UpToNul(TakeText(input, 100));
  message.line = input.ConsumeIntegral<int>();
  message.format = Literal(TakeText(input, 2100));
  switch (input.ConsumeIntegralInRange(0, 5)) {
    case 0:
      CheckConversion(message, TakeField(input, "-+ 0", true),
                      std::string(1, input.PickValueInArray({'d', 'i'})),
                      input.ConsumeIntegral<int>());
      break;
    case 1:
      CheckConversion(message, TakeField(input, "-#0", true),
                      input.PickValueInArray({"llx", "llX", "llo", "llu"}),
                      input.ConsumeIntegral<unsigned long long>());
      break;
    case 2: {
      const Field field = TakeField(input, "-+ 0#", true);
      const char letter = input.PickValueInArray({'f', 'e', 'g', 'a', 'E', 'G'});
      if (portable && letter == 'a') break;  // the C libraries print different digits
      CheckConversion(message, field, std::string(1, letter), input.ConsumeFloatingPoint<double>());
      break;
    }
    case 3: {
      const Field field = TakeField(input, "-", true);
      const std::string text = TakeText(input, 2100);
      CheckConversion(message, field, "s", text.c_str());
      break;
    }
    case 4:
      CheckConversion(message, TakeField(input, "-", false), "c", input.ConsumeIntegral<int>());
      break;
    default:
      if (portable) break;  // the C libraries have different types and encodings
      CheckWideCharacter(message, TakeField(input, "-", false),
                         input.ConsumeIntegral<std::wint_t>());
      break;
  }
  return 0;
}

}  // namespace tarsio_fuzz
