// Log lines with hostile file names, formats and arguments, against the C library's own formatting.

#include <cwchar>
#include <string>

#include "common/log.h"
#include "path_reference.h"
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

// "[2024-03-05 14:07:09.38]": of the digits, those of the milliseconds vary in number.
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
  ReferencePath file;
  file.Set(message.file, 0);
  const std::string expected = '[' + LevelName(message.level) + "][" + file.Filename() + ':' +
                               std::to_string(message.line) + "] " + text;
  Require(line.substr(timeEnd) == expected, "the line behind the time");
}

template <typename... Args>
void CheckMessage(const Message& message, Args... args) {
  const char* const format = message.format.c_str();
  const char* const file = message.file.c_str();
  std::string text(2048, '\0');
  const int length = std::snprintf(text.data(), text.size(), format, args...);
  text = length < 0 || length > 2047 ? "" : text.c_str();

  const auto records = tarsio_test::LogRecords::Install(threshold);
  tarsio::Log::GetInstance().DoLog(message.level, file, message.line, "f", format, args...);
  callbackLine.clear();
  tarsio::TsLog(
      message.level, [](const char* line) { callbackLine = line; }, [] { return threshold; }, file,
      message.line, "f", format, args...);

  const auto logged = records->All();
  if (message.level > threshold) {
    Require(logged.empty() && callbackLine.empty(), "what is above the threshold is dropped");
    return;
  }
  Require(logged.size() == 1, "one line for a message");
  CheckLine(logged[0].text, message, text);
  CheckLine(callbackLine, message, text);
}

// What a C string can hold of a text.
std::string UpToNul(const std::string& text) { return text.substr(0, text.find('\0')); }

std::string Literal(const std::string& text) {
  std::string literal;
  for (const char c : text) literal += c == '%' ? "%%" : std::string(1, c);
  return UpToNul(literal);
}

// A conversion less the letters at its end.
std::string Conversion(FuzzedDataProvider& input, const std::string& flags) {
  std::string conversion = "%";
  for (const char flag : flags) {
    if (input.ConsumeBool()) conversion += flag;
  }
  if (input.ConsumeBool()) conversion += std::to_string(input.ConsumeIntegralInRange(1, 2100));
  return conversion;
}

std::string Precision(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) return {};
  return '.' + std::to_string(input.ConsumeIntegralInRange(0, 2100));
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
  std::string& format = message.format;
  switch (input.ConsumeIntegralInRange(0, 5)) {
    case 0:
      format += Conversion(input, "-+ 0") + input.PickValueInArray({'d', 'i', 'u'});
      CheckMessage(message, input.ConsumeIntegral<int>());
      break;
    case 1:
      format += Conversion(input, "-#0") + input.PickValueInArray({"llx", "llX", "llo", "llu"});
      CheckMessage(message, input.ConsumeIntegral<unsigned long long>());
      break;
    case 2:
      format += Conversion(input, "-+ 0#") + Precision(input) +
                input.PickValueInArray({'f', 'e', 'g', 'a', 'E', 'G'});
      CheckMessage(message, input.ConsumeFloatingPoint<double>());
      break;
    case 3: {
      format += Conversion(input, "-") + Precision(input) + 's';
      const std::string text = TakeText(input, 2100);
      CheckMessage(message, text.c_str());
      break;
    }
    case 4:
      format += Conversion(input, "-") + 'c';
      CheckMessage(message, input.ConsumeIntegral<int>());
      break;
    default:  // which cannot be formatted, but for ASCII
      format += Conversion(input, "-") + "lc";
      CheckMessage(message, input.ConsumeIntegral<std::wint_t>());
      break;
  }
  return 0;
}

}  // namespace tarsio_fuzz
