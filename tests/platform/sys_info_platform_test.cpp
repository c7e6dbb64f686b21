// The system description for arbitrary versions, and its private parts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "common/sys_info.h"
#include "support/fake_platform.h"
#include "support/private_member.h"
#include "support/recording_logger.h"

namespace tarsio_test {

using Getter = bool (*)(std::string& out);

EXPOSE_PRIVATE(ArchGetter, &tarsio::SysInfo::GetOSArch);
EXPOSE_PRIVATE(VersionGetter, &tarsio::SysInfo::GetOSVersion);
EXPOSE_PRIVATE(ModelGetter, &tarsio::SysInfo::GetOSManufacturingModel);

}  // namespace tarsio_test

namespace {

using tarsio::ClientDeviceInfo;
using tarsio::SysInfo;
using tarsio_test::FakePlatform;
using tarsio_test::Getter;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

TEST(SysInfoOs, Version) {
  FakePlatform platform;
  const struct {
    tarsio::platform::Version version;
    const char* text;
  } rows[] = {
      {{6, 1}, "6.1"},
      {{10, 12}, "10.12"},
      {{0, 0}, "0.0"},
      {{100, 1000}, "100.1000"},
      {{2147483648, 2147483647}, "2147483648.2147483647"},
      {{4294967295, 4294967295}, "4294967295.4294967295"},
  };
  auto info = std::make_shared<ClientDeviceInfo>();
  for (const auto& row : rows) {
    platform.version = row.version;
    EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
    EXPECT_EQ(info->osVersion, row.text);
    EXPECT_THAT(platform.Calls(), ElementsAre("RunningVersion")) << "not cached";
  }
}

TEST(SysInfoOs, Failure) {
  const FakePlatform platform;
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  auto info =
      std::make_shared<ClientDeviceInfo>(ClientDeviceInfo{"arch", "reserved", "version", "model"});
  EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info->osArch, "Windows");
  EXPECT_EQ(info->reserved, "reserved");
  EXPECT_EQ(info->osVersion, "version");
  EXPECT_EQ(info->osManufacturingModel, "model");

  ASSERT_THAT(records->All(), SizeIs(1));
  const tarsio_test::LogRecord line = records->All()[0];
  EXPECT_EQ(line.level, tarsio::LOG_LEVEL_ERROR);
  EXPECT_THAT(line.file, EndsWith("src/sys_info.cpp"));
  EXPECT_EQ(line.line, 31);
  EXPECT_EQ(line.function, "tarsio::SysInfo::GetClientOsInfo");
  EXPECT_THAT(line.text, EndsWith("][ERROR][sys_info.cpp:31] GetOSVersion Failed"));
}

// The architecture getter returns the system's name, and the model getter the architecture (by
// design).
TEST(SysInfoOs, Getters) {
  const Getter getOSArch = Reach(tarsio_test::ArchGetter());
  const Getter getOSVersion = Reach(tarsio_test::VersionGetter());
  const Getter getOSManufacturingModel = Reach(tarsio_test::ModelGetter());
  FakePlatform platform;
  std::string text = "before";
  EXPECT_FALSE(getOSVersion(text));
  EXPECT_EQ(text, "before");
  EXPECT_THAT(platform.Calls(), ElementsAre("RunningVersion")) << "logged by the caller";
  platform.version = {10, 0};
  EXPECT_TRUE(getOSVersion(text));
  EXPECT_EQ(text, "10.0");
  platform.Calls();
  EXPECT_TRUE(getOSArch(text));
  EXPECT_EQ(text, "Windows");
  EXPECT_TRUE(getOSManufacturingModel(text));
  EXPECT_EQ(text, "x64");
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

}  // namespace
