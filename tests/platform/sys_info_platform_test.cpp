// The system description for arbitrary versions and for failures. The library's source is compiled
// into this program with a fake platform and log.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "common/log.h"
#include "common/sys_info.h"
#include "platform/platform.h"
#include "support/private_member.h"

namespace tarsio_test {

using Getter = bool (*)(std::string& out);

EXPOSE_PRIVATE(ArchGetter, &tarsio::SysInfo::GetOSArch);
EXPOSE_PRIVATE(VersionGetter, &tarsio::SysInfo::GetOSVersion);
EXPOSE_PRIVATE(ModelGetter, &tarsio::SysInfo::GetOSManufacturingModel);

}  // namespace tarsio_test

namespace {

using tarsio::ClientDeviceInfo;
using tarsio::SysInfo;
using tarsio_test::Getter;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

struct Report {
  tarsio::LOG_LEVEL level;
  std::string file;
  int line;
  std::string function;
  std::string format;
};

struct System {
  bool versionKnown = true;
  uint32_t major = 10;
  uint32_t minor = 0;
  int asked = 0;
  std::vector<Report> reports;
};

System* current = nullptr;

}  // namespace

namespace tarsio {

std::optional<platform::Version> platform::RunningVersion() {
  ++current->asked;
  if (!current->versionKnown) return {};
  return Version{current->major, current->minor};
}

Logger::~Logger() = default;
void Logger::VFormat(LOG_LEVEL /*level*/, std::string& /*out*/, const char* /*file*/, int /*line*/,
                     const char* /*function*/, const char* /*format*/, va_list /*args*/) {}
void Logger::DoOutput(const char* /*line*/) {}

Log::Log() : level(LOG_LEVEL_ERROR) {}
Log::~Log() = default;

Log& Log::GetInstance() {
  static Log instance;
  return instance;
}

void Log::DoLog(LOG_LEVEL messageLevel, const char* file, int line, const char* function,
                const char* format, ...) {
  current->reports.push_back({messageLevel, file, line, function, format});
}

}  // namespace tarsio

namespace {

class SysInfoOs : public testing::Test {
 protected:
  SysInfoOs() { current = &system; }
  ~SysInfoOs() override { current = nullptr; }

  System system;
  const Getter getOSArch = Reach(tarsio_test::ArchGetter());
  const Getter getOSVersion = Reach(tarsio_test::VersionGetter());
  const Getter getOSManufacturingModel = Reach(tarsio_test::ModelGetter());
};

TEST_F(SysInfoOs, Version) {
  struct Row {
    uint32_t major;
    uint32_t minor;
    const char* text;
  };
  const Row rows[] = {
      {6, 1, "6.1"},
      {6, 3, "6.3"},
      {10, 0, "10.0"},
      {10, 12, "10.12"},
      {0, 0, "0.0"},
      {100, 1000, "100.1000"},
      {2147483648u, 2147483647u, "2147483648.2147483647"},
      {4294967295u, 0, "4294967295.0"},
      {0, 4294967295u, "0.4294967295"},
      {4294967295u, 4294967295u, "4294967295.4294967295"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    system.major = row.major;
    system.minor = row.minor;
    auto info = std::make_shared<ClientDeviceInfo>();
    EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
    EXPECT_EQ(info->osArch, "Windows");
    EXPECT_EQ(info->reserved, "");
    EXPECT_EQ(info->osVersion, row.text);
    EXPECT_EQ(info->osManufacturingModel, "x64");
    std::string text = "before";
    EXPECT_TRUE(getOSVersion(text));
    EXPECT_EQ(text, row.text);
  }
  EXPECT_THAT(system.reports, IsEmpty());
}

TEST_F(SysInfoOs, OneCall) {
  auto info = std::make_shared<ClientDeviceInfo>();
  static_cast<void>(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(system.asked, 1);
  system.minor = 5;
  static_cast<void>(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(system.asked, 2);
  EXPECT_EQ(info->osVersion, "10.5");
}

TEST_F(SysInfoOs, FailureLog) {
  system.versionKnown = false;
  auto info = std::make_shared<ClientDeviceInfo>();
  EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
  ASSERT_THAT(system.reports, SizeIs(1));
  const Report& report = system.reports[0];
  EXPECT_EQ(report.level, tarsio::LOG_LEVEL_ERROR);
  EXPECT_THAT(report.file, EndsWith("src/sys_info.cpp"));
  EXPECT_EQ(report.line, 31);
  EXPECT_EQ(report.function, "tarsio::SysInfo::GetClientOsInfo");
  EXPECT_EQ(report.format, "GetOSVersion Failed");
}

TEST_F(SysInfoOs, LaterFields) {
  system.versionKnown = false;
  auto info = std::make_shared<ClientDeviceInfo>();
  info->osArch = "arch";
  info->reserved = "reserved";
  info->osVersion = "version";
  info->osManufacturingModel = "model";
  EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info->osArch, "Windows");
  EXPECT_EQ(info->reserved, "reserved");
  EXPECT_EQ(info->osVersion, "version");
  EXPECT_EQ(info->osManufacturingModel, "model");

  auto empty = std::make_shared<ClientDeviceInfo>();
  EXPECT_FALSE(SysInfo::GetClientOsInfo(empty));
  EXPECT_EQ(empty->osArch, "Windows");
  EXPECT_EQ(empty->reserved + empty->osVersion + empty->osManufacturingModel, "");
}

TEST_F(SysInfoOs, Recovery) {
  auto info = std::make_shared<ClientDeviceInfo>();
  EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
  system.versionKnown = false;
  system.major = 11;
  EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info->osVersion, "10.0") << "from the previous call";
  system.versionKnown = true;
  EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info->osVersion, "11.0");
  EXPECT_THAT(system.reports, SizeIs(1));
}

// ---- the three getters ----

// The architecture getter returns the system's name, and the model getter the architecture (by
// design).
TEST_F(SysInfoOs, FixedFields) {
  for (const bool versionKnown : {true, false}) {
    system.versionKnown = versionKnown;
    std::string text = "before";
    EXPECT_TRUE(getOSArch(text));
    EXPECT_EQ(text, "Windows");
    EXPECT_TRUE(getOSManufacturingModel(text));
    EXPECT_EQ(text, "x64");
  }
  EXPECT_EQ(system.asked, 0);
}

TEST_F(SysInfoOs, NoVersion) {
  system.versionKnown = false;
  std::string text = "before";
  EXPECT_FALSE(getOSVersion(text));
  EXPECT_EQ(text, "before");
  EXPECT_THAT(system.reports, IsEmpty()) << "reported by the caller";
}

}  // namespace
