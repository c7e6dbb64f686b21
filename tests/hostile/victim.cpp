// A host in a hostile environment: see scenario.h.

#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>

#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/path.h"
#include "everyday_use.h"
#include "names.h"
#include "scenario.h"
#include "support/environment.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"
#include "support/scoped_time_zone.h"
#include "support/swapped_name.h"

namespace {

using tarsio::FileUtils;
using tarsio::Path;
using tarsio_test::Expect;
using tarsio_test::ScopedDirectory;

constexpr size_t kHuge = 100000;

// ---- names that are swapped concurrently ----

void Use(const std::string& name, int rounds) {
  for (int i = 0; i < rounds; ++i) {
    const int mode = i % 64;
    const int written = FileUtils::WriteFile("content", name, mode);
    Expect(written == 0 || (written >= 4 && written <= 6), "WriteFile: " + std::to_string(written));
    std::string content = "as before";
    const int got = FileUtils::GetFileContent(name, content);
    Expect(got >= 0 && got <= 3, "GetFileContent: " + std::to_string(got));
    Expect(got == 0 || content == (got == 3 ? "" : "as before"), "output after a failure");
    Expect(got != 0 || !content.empty(), "a successful read has content");
    const Path path(name);
    static_cast<void>(path.FileSize());
    static_cast<void>(path.Exists());
    static_cast<void>(path.IsFile());
    static_cast<void>(path.IsDirectory());
    static_cast<void>(FileUtils::CheckDirOrFileExists(name));
    static_cast<void>(FileUtils::MakeDir(name + "/below/"));
    static_cast<void>(MakeDirs(Path(name + "/below")));
    static_cast<void>(FileUtils::RemoveDir(name + "/below"));
    if (i % 4 == 0) static_cast<void>(FileUtils::RemoveFile(name));
  }
}

// Two threads, so that a FIFO that one of them reads has a reader when the other writes to it.
void UseSwappedNames() {
  const ScopedDirectory directory;
  const tarsio_test::SwappedName swapped("s");
  std::thread other([] { Use("./s", 2000); });
  Use("./s", 2000);
  other.join();
}

// ---- time zones and locales ----

void UseHostileTimeZones() {
  const std::regex form(
      R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{1,3}\]\[ERROR\]\[a\.cpp:1\] in a strange place)");
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  const std::string zones[] = {std::string(kHuge, 'A'),
                               std::string(kHuge, '9'),
                               "JST-9" + std::string(kHuge, '0'),
                               ":/dev/full",
                               ":/dev/zero",
                               ":/",
                               "../../../etc/passwd",
                               "/etc/passwd",
                               ":" + std::string(kHuge, '/'),
                               "%s%s%s%n",
                               "A-99999999999999999999",
                               "<\x1b[2J\n>-1",
                               "\xFF\xFE",
                               "EST5EDT,M99.99.99,J9999/-999"};
  for (const std::string& zone : zones) {
    const tarsio_test::ScopedTimeZone here(zone);
    tarsio::Log::GetInstance().DoLog(tarsio::LOG_LEVEL_ERROR, "a.cpp", 1, "f", "%s",
                                     "in a strange place");
    const std::string line = records->All().back().text;
    Expect(std::regex_match(line, form), zone.substr(0, 20) + ": " + line);
  }
  Expect(records->All().size() == std::size(zones), "one line per zone");
}

// The result is a string or a documented exception.
void Convert(const std::string& locale) {
  for (const auto convert : {tarsio::CharsetCvt::U8ToMb, tarsio::CharsetCvt::MbToU8}) {
    for (const char* const text : {"plain", "\xC3\xA9", "\xE9"}) {
      try {
        convert(text);
      } catch (const std::range_error& e) {
        Expect(e.what() == std::string("bad conversion"), locale + ": " + e.what());
      } catch (const std::runtime_error& e) {
        Expect(e.what() == std::string("bad locale name"), locale + ": " + e.what());
      }
    }
  }
}

void UseHostileLocales() {
  const ScopedDirectory directory;
  const std::string locales[] = {std::string(kHuge, 'x'),
                                 "nothing_XX.UTF-8",
                                 "/dev/full",
                                 "../../../../etc/passwd",
                                 "./.",
                                 "C/../C",
                                 "%s%n",
                                 "\xFF\n",
                                 "LC_CTYPE=C;LC_ALL=" + std::string(1000, ';'),
                                 "C"};
  for (const char* const variable : {"LC_ALL", "LC_CTYPE", "LANG", "LOCPATH"}) {
    for (const std::string& locale : locales) {
      const tarsio_test::ScopedVariable user(variable, locale);
      Convert(variable + ("=" + locale.substr(0, 20)));
    }
  }
  Expect(tarsio_test::EverydayUse(), "still works");
}

// ---- a current directory with libraries in it ----

void TakeNoPlantedLibrary() {
  Expect(std::filesystem::exists("planted"), "planted libraries exist");
  Expect(tarsio_test::EverydayUse(), "works");  // the program itself was loaded earlier
  Expect(!std::filesystem::exists("taken"), "no planted library is loaded");
}

constexpr tarsio_test::Scenario kScenarios[] = {
    {"names", tarsio_test::UseHostileNames},     {"swapped_names", UseSwappedNames},
    {"time_zones", UseHostileTimeZones},         {"locales", UseHostileLocales},
    {"planted_libraries", TakeNoPlantedLibrary},
};

}  // namespace

int main(int argc, char** argv) { return tarsio_test::RunScenario(kScenarios, argc, argv); }
