// Runs each operation twice under callgrind; count.py counts the second run.

#include <valgrind/callgrind.h>

#include <memory>
#include <string>

#include "common/blocking_queue.h"
#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/timer.h"
#include "common/ts_string.h"

namespace {

using tarsio::CharsetCvt;
using tarsio::FileUtils;
using tarsio::Path;
using tarsio::StringUtils;

// Called by function pointer, so that the call is not optimized away.
using Operation = void (*)();

// Keeps a result alive and hides its use from the compiler.
template <typename Result>
void Keep(const Result& result) {
  asm volatile("" : : "r"(&result) : "memory");
}

std::string Repeat(const std::string& sample, size_t bytes) {
  std::string text;
  while (text.size() < bytes) text += sample;
  text.resize(bytes);
  return text;
}

constexpr size_t kLine = 1024;
constexpr size_t kText = 4096;
const std::string pathText = R"(C:\Program Files\Vendor\Product\modules\x64\release\core.dll)";
const Path path(pathText);
const Path file("more.txt");
const std::string ascii = Repeat("The quick brown fox. ", kText);
const std::string mixed = Repeat("Gr\xC3\xB6\xC3\x9F\x65 \xE2\x82\xAC\xF0\x9F\x98\x80 ", kText);
const std::u16string units16(kText, u'x');
const std::u32string units32(kText, U'x');
const std::wstring wide(kText, L'x');
const std::string fields = Repeat("name,a longer field that needs memory,x,", kLine);
const std::string words = Repeat("  some Words and\tblanks ", kLine);
const std::string comma = ",";
const std::string blanks = " \t";
const std::string needle = "needle";
const tarsio::TsString shortText("twelve chars");
const std::string inputName = "./input";
const std::string outputName = "./output";

tarsio::BlockingQueue<int>& Queue() {
  static tarsio::BlockingQueue<int> queue(16);
  return queue;
}

component::TsTimer& Timer() {
  static const auto timer = std::make_shared<component::TsTimer>(3600000, false);
  return *timer;
}

// Expires before ten thousand other timers, which is the worst case for the heap.
component::TsTimer& FirstOfManyTimers() {
  static const auto timer = [] {
    for (unsigned long long i = 0; i < 10000; ++i) {
      std::make_shared<component::TsTimer>(7200000 + i * 1000, false)->Start();
    }
    return std::make_shared<component::TsTimer>(3600000, false);
  }();
  return *timer;
}

struct Named {
  const char* name;
  Operation operation;
};

const Named kOperations[] = {
    {"log_filtered", [] { TARSIO_LOG(tarsio::LOG_LEVEL_DEBUG, "%d files", 7961); }},
    {"log_line", [] { TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%d files", 7961); }},
    {"path_parse", [] { Keep(Path(pathText)); }},
    {"path_print", [] { Keep(path.Str()); }},
    {"path_join", [] { Keep(path / file); }},
    {"path_parent", [] { Keep(path.ParentPath()); }},
    {"path_copy", [] { Keep(Path(path)); }},
    {"is_ascii", [] { Keep(CharsetCvt::IsASCII(ascii)); }},
    {"is_u8_ascii", [] { Keep(CharsetCvt::IsU8(ascii)); }},
    {"is_u8_mixed", [] { Keep(CharsetCvt::IsU8(mixed)); }},
    {"u8_to_u16", [] { Keep(CharsetCvt::U8ToU16(ascii)); }},
    {"u16_to_u8", [] { Keep(CharsetCvt::U16ToU8(units16)); }},
    {"u8_to_u32", [] { Keep(CharsetCvt::U8ToU32(ascii)); }},
    {"u32_to_u8", [] { Keep(CharsetCvt::U32ToU8(units32)); }},
    {"u8_to_w", [] { Keep(CharsetCvt::U8ToW(ascii)); }},
    {"w_to_u8", [] { Keep(CharsetCvt::WToU8(wide)); }},
    {"split", [] { Keep(StringUtils::SplitString(fields, comma)); }},
    {"split_all", [] { Keep(StringUtils::SplitAllByString(fields, comma)); }},
    {"split_first", [] { Keep(StringUtils::SplitFristByString(fields, comma)); }},
    {"trim",
     [] {
       std::string text = words;
       StringUtils::Trim(text);
       Keep(text);
     }},
    {"to_upper", [] { Keep(StringUtils::ToUpper(words)); }},
    {"to_lower", [] { Keep(StringUtils::ToLower(words)); }},
    {"starts_with", [] { Keep(StringUtils::StartsWith(words, needle)); }},
    {"contains", [] { Keep(StringUtils::Contains(words, needle)); }},
    {"replace_set", [] { Keep(StringUtils::SpaceToUnderscore(words, blanks, '_')); }},
    {"digest_text", [] { Keep(StringUtils::GetHashText(words.data(), 64)); }},
    {"ts_string_construct", [] { Keep(tarsio::TsString("twelve chars")); }},
    {"ts_string_copy", [] { Keep(tarsio::TsString(shortText)); }},
    {"queue_push_pop",
     [] {
       int item = 1;
       static_cast<void>(Queue().Push(item, 0));
       static_cast<void>(Queue().Pop(item, 0));
     }},
    {"timer_start_stop",
     [] {
       Timer().Start();
       Timer().Stop();
     }},
    {"timer_start_stop_of_many",
     [] {
       FirstOfManyTimers().Start();
       FirstOfManyTimers().Stop();
     }},
    {"file_write", [] { Keep(FileUtils::WriteFile(ascii, outputName, 0x32)); }},
    {"file_read",
     [] {
       std::string content;
       Keep(FileUtils::GetFileContent(inputName, content));
     }},
};

}  // namespace

int main() {
  if (FileUtils::WriteFile(ascii, inputName, 0x32) != tarsio::FILE_OPT_SUCCESS) return 1;
  for (const Named& named : kOperations) {
    named.operation();  // one-time work and symbol lookups happen here
    CALLGRIND_ZERO_STATS;
    named.operation();
    CALLGRIND_DUMP_STATS_AT(named.name);
  }
}
