#include <climits>
#include <cstdarg>
#include <initializer_list>
#include <string>

#include "common/log.h"
#include "parity/table.h"

// The formats come from tables; some have no arguments.
#pragma GCC diagnostic ignored "-Wformat-security"

namespace tarsio_test {

namespace {

using tarsio::LOG_LEVEL;

std::string callbackLine;

// Returns the line from the level on, without the time.
std::string WithoutTime(const std::string& line) { return line.substr(line.find("][") + 1); }

// The line of the default sink and the line of TsLog(), which are equal.
template <typename... Args>
void AddLine(Table& table, int level, const char* file, int line, const char* format,
             Args... args) {
  class Sink : public tarsio::Logger {
   public:
    std::string Line(LOG_LEVEL level, const char* file, int line, const char* format, ...) {
      std::string out;
      va_list args;
      va_start(args, format);
      VFormat(level, out, file, line, "ignored", format, args);
      va_end(args);
      return WithoutTime(out);
    }
  };
  const auto logLevel = static_cast<LOG_LEVEL>(level);
  table.Add(
      "Logger::VFormat", [&] { return Sink().Line(logLevel, file, line, format, args...); }, level,
      file, line, format);
  table.Add(
      "TsLog",
      [&] {
        callbackLine.clear();
        tarsio::TsLog(
            logLevel, [](const char* text) { callbackLine = text; },
            [] { return static_cast<LOG_LEVEL>(INT_MAX); }, file, line, "ignored", format, args...);
        return WithoutTime(callbackLine);
      },
      level, file, line, format);
}

}  // namespace

void AddLogLines(Table& table) {
  for (int level = -2; level <= 6; ++level) {
    for (const char* const file :
         {"", "main.cpp", "C:\\src\\main.cpp", "/src/main.cpp", "src\\a/b.h", "\\\\srv\\s\\",
          "UNC\\x", "C:\\", "a:b", "\xE4\xB8\xAD", "%s%n"}) {
      AddLine(table, level, file, level * 1000, "%s", "text");
    }
  }
  for (const int line : {INT_MIN, -1, 0, 1, 1000, INT_MAX}) {
    for (const char* const format :
         {"%d", "%5d|", "%-5d|", "%+d", "%05d", "%x", "%X", "%o", "%c%%"}) {
      AddLine(table, 1, "a.cpp", line, format, line == 0 ? 'c' : line);
    }
    AddLine(table, 1, "a.cpp", line, "%lld %llu %llx", static_cast<long long>(line),
            static_cast<unsigned long long>(line), static_cast<unsigned long long>(line));
    AddLine(table, 1, "a.cpp", line, "%zu %hd %hhd", static_cast<size_t>(7), line, line);
  }
  for (const double number : {0.0, -1.5, 1e300, 123456.789, 1e-5}) {
    for (const char* const format : {"%f", "%.3f", "%e", "%g", "%10.2f|"}) {
      AddLine(table, 1, "a.cpp", 1, format, number);
    }
  }
  for (const size_t length : std::initializer_list<size_t>{0, 1, 2046, 2047, 2048, 5000}) {
    AddLine(table, 1, "a.cpp", 1, "%s", std::string(length, 'm').c_str());
    AddLine(table, 1, "a.cpp", 1, "%.10s|%20s|%-3s|", std::string(length, 'm').c_str(), "b", "c");
  }
  AddLine(table, 1, "a.cpp", 1, "no conversion");
  for (const char* const format :
       {"%3000000d", "%.3000000d", "%2147483647x", "%-2048d", "%2047d", "%.2047d", "100%", "%n",
        "%1$d", "%y", "%I32d", "%Iu", "%99999999999999d"}) {
    AddLine(table, 1, "a.cpp", 1, format, 7);
  }
  for (const int number :
       {INT_MIN, -3000000, -2048, -2047, -8, 0, 8, 2047, 2048, 3000000, INT_MAX}) {
    for (const char* const format : {"%*d|", "%.*d|", "%-*d|", "%0*d|", "%+.*i|"}) {
      AddLine(table, 1, "a.cpp", 1, format, number, 7);
    }
    for (const char* const format : {"%*x", "%.*o", "%*llu"}) {
      AddLine(table, 1, "a.cpp", 1, format, number, 7ULL);
    }
    for (const char* const format : {"%*f", "%.*f", "%.*e", "%.*g", "%#.*g"}) {
      AddLine(table, 1, "a.cpp", 1, format, number, 0.1);
    }
    AddLine(table, 1, "a.cpp", 1, "%*s|%.*s|", number, "abc", number, "defghijklmnop");
    AddLine(table, 1, "a.cpp", 1, "%*ls|%.*ls|", number, L"abc", number, L"defghijklmnop");
  }
  for (const char* const format : {"% u", "%+5u", "%#.0o", "%#o", "% x|", "%Id"}) {
    for (const unsigned number : {0U, 7U}) AddLine(table, 1, "a.cpp", 1, format, number);
  }
  AddLine(table, 1, "a.cpp", 1, "%I64u", 7ULL);
  AddLine(table, 1, "a.cpp", 1, "%2147483647s%2147483647sabcd", "a", "b");
  AddLine(table, 1, "a.cpp", 1, "before %ls after", L"\x4E2D");
}

}  // namespace tarsio_test
