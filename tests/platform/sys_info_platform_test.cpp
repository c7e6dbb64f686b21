// The system description for arbitrary versions, and its private parts.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "common/sys_info.h"
#include "support/fake_platform.h"
#include "support/private_member.h"

namespace tarsio_test {

using Getter = bool (*)(std::string& out);

EXPOSE_PRIVATE(ArchGetter, &tarsio::SysInfo::GetOSArch);
EXPOSE_PRIVATE(VersionGetter, &tarsio::SysInfo::GetOSVersion);
EXPOSE_PRIVATE(ModelGetter, &tarsio::SysInfo::GetOSManufacturingModel);

}  // namespace tarsio_test

namespace {

using tarsio_test::FakePlatform;
using tarsio_test::Getter;
using testing::ElementsAre;
using testing::IsEmpty;

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
  const auto info = std::make_shared<tarsio::ClientDeviceInfo>();
  for (const auto& row : rows) {
    platform.version = row.version;
    auto out = info;
    EXPECT_TRUE(tarsio::SysInfo::GetClientOsInfo(out));
    EXPECT_EQ(info->osVersion, row.text);
    EXPECT_THAT(platform.Calls(), ElementsAre("RunningVersion")) << "not cached";
  }
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
