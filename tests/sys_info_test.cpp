#include "common/sys_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/recording_logger.h"
#include "support/system_version.h"

namespace {

using tarsio::ClientDeviceInfo;
using tarsio::SysInfo;
using tarsio_test::LogRecords;
using tarsio_test::PretendSystemVersion;
using tarsio_test::RefuseSystemVersion;
using tarsio_test::SystemVersion;
using testing::EndsWith;
using testing::IsEmpty;
using testing::SizeIs;

using InfoPtr = std::shared_ptr<ClientDeviceInfo>;

// ---- declarations ----

static_assert(std::is_same<decltype(&SysInfo::GetClientOsInfo), bool (*)(InfoPtr&)>::value,
              "no instance is needed");
static_assert(std::is_aggregate<ClientDeviceInfo>::value, "a plain record");

// Whether `call`, which writes to an argument of that type, is accessible from here.
template <typename Argument = std::string, typename Call>
constexpr bool IsOpen(Call /*call*/) {
  return std::is_invocable_v<Call, SysInfo, Argument&>;
}

static_assert(IsOpen<InfoPtr>([](auto s, auto& out) -> decltype(s.GetClientOsInfo(out)) {}));
static_assert(!IsOpen([](auto s, auto& out) -> decltype(s.GetOSArch(out)) {}));
static_assert(!IsOpen([](auto s, auto& out) -> decltype(s.GetOSVersion(out)) {}));
static_assert(!IsOpen([](auto s, auto& out) -> decltype(s.GetOSManufacturingModel(out)) {}));

// ---- helpers ----

InfoPtr MakeInfo(const std::string& osArch, const std::string& reserved,
                 const std::string& osVersion, const std::string& osManufacturingModel) {
  const auto info = std::make_shared<ClientDeviceInfo>();
  info->osArch = osArch;
  info->reserved = reserved;
  info->osVersion = osVersion;
  info->osManufacturingModel = osManufacturingModel;
  return info;
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
         (text.size() == 1 || text.front() != '0');
}

// ---- the record ----

TEST(ClientDeviceInfo, Fields) {
  const ClientDeviceInfo info{"arch", "reserved", "version", "model"};
  EXPECT_EQ(info.osArch, "arch");
  EXPECT_EQ(info.reserved, "reserved");
  EXPECT_EQ(info.osVersion, "version");
  EXPECT_EQ(info.osManufacturingModel, "model");
  const ClientDeviceInfo empty;
  EXPECT_EQ(empty.osArch + empty.reserved + empty.osVersion + empty.osManufacturingModel, "");
}

// ---- the running system ----

// The field named for the architecture holds the system's name, and the one named for the model
// holds the architecture (by design).
TEST(SysInfo, EmptyRecord) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  auto info = std::make_shared<ClientDeviceInfo>();
  EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info->osArch, "Windows");
  EXPECT_EQ(info->reserved, "");
  EXPECT_EQ(info->osVersion, SystemVersion());
  EXPECT_EQ(info->osManufacturingModel, "x64");
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST(SysInfo, VersionFormat) {
  auto info = std::make_shared<ClientDeviceInfo>();
  ASSERT_TRUE(SysInfo::GetClientOsInfo(info));
  const size_t point = info->osVersion.find('.');
  ASSERT_NE(point, std::string::npos) << info->osVersion;
  EXPECT_TRUE(IsNumber(info->osVersion.substr(0, point))) << info->osVersion;
  EXPECT_TRUE(IsNumber(info->osVersion.substr(point + 1))) << info->osVersion;
}

TEST(SysInfo, Version) {
  for (const auto& [major, minor] : {std::pair(10u, 12u), std::pair(6u, 3u)}) {
    const PretendSystemVersion pretend(major, minor);
    auto info = std::make_shared<ClientDeviceInfo>();
    EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
    EXPECT_EQ(info->osVersion, std::to_string(major) + '.' + std::to_string(minor));
  }
}

TEST(SysInfo, UsedRecord) {
  const std::string reserved("kept\0as it is", 13);
  auto info = MakeInfo(std::string(1000, 'a'), reserved, "99.99.99", "model");
  EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info->osArch, "Windows");
  EXPECT_EQ(info->reserved, reserved);
  EXPECT_EQ(info->osVersion, SystemVersion());
  EXPECT_EQ(info->osManufacturingModel, "x64");
}

TEST(SysInfo, CallersRecord) {
  auto info = std::make_shared<ClientDeviceInfo>();
  const InfoPtr other = info;
  EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
  EXPECT_EQ(info, other);
  EXPECT_EQ(info.use_count(), 2);
  EXPECT_EQ(other->osArch, "Windows");
}

TEST(SysInfo, SameEachTime) {
  auto first = std::make_shared<ClientDeviceInfo>();
  auto second = MakeInfo("a", "b", "c", "d");
  EXPECT_TRUE(SysInfo::GetClientOsInfo(first));
  EXPECT_TRUE(SysInfo::GetClientOsInfo(second));
  EXPECT_TRUE(SysInfo::GetClientOsInfo(second));
  EXPECT_EQ(second->osArch, first->osArch);
  EXPECT_EQ(second->osVersion, first->osVersion);
  EXPECT_EQ(second->osManufacturingModel, first->osManufacturingModel);
  EXPECT_EQ(second->reserved, "b");
}

TEST(SysInfo, ManyThreads) {
  const std::string version = SystemVersion();
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        auto info = MakeInfo("", "r", "", "");
        const bool succeeded = SysInfo::GetClientOsInfo(info);
        if (!succeeded || info->osArch != "Windows" || info->reserved != "r" ||
            info->osVersion != version || info->osManufacturingModel != "x64") {
          ++wrong;
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// ---- failed version calls ----

TEST(SysInfo, AnyStatusFails) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  for (const int32_t status : tarsio_test::SystemVersionFailures()) {
    SCOPED_TRACE(status);
    const RefuseSystemVersion refuse(status);
    auto info = MakeInfo("arch", "reserved", "version", "model");
    EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
    EXPECT_EQ(info->osVersion, "version");
  }
  EXPECT_THAT(records->All(), SizeIs(tarsio_test::SystemVersionFailures().size()));
}

TEST(SysInfo, FailureLog) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  auto info = MakeInfo("arch", "reserved", "version", "model");
  {
    const RefuseSystemVersion refuse;
    EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
  }
  EXPECT_EQ(info->osArch, "Windows");
  EXPECT_EQ(info->reserved, "reserved");
  EXPECT_EQ(info->osVersion, "version");
  EXPECT_EQ(info->osManufacturingModel, "model");

  const auto lines = records->All();
  ASSERT_THAT(lines, SizeIs(1));
  EXPECT_EQ(lines[0].level, tarsio::LOG_LEVEL_ERROR);
  EXPECT_EQ(lines[0].file, "src/sys_info.cpp");
  EXPECT_EQ(lines[0].line, 31);
  EXPECT_EQ(lines[0].function, "tarsio::SysInfo::GetClientOsInfo");
  EXPECT_THAT(lines[0].text, EndsWith("][ERROR][sys_info.cpp:31] GetOSVersion Failed"));
}

TEST(SysInfo, Recovery) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  auto info = std::make_shared<ClientDeviceInfo>();
  for (int round = 1; round <= 2; ++round) {
    {
      const RefuseSystemVersion refuse;
      EXPECT_FALSE(SysInfo::GetClientOsInfo(info));
    }
    EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
    EXPECT_EQ(info->osVersion, SystemVersion());
    EXPECT_THAT(records->All(), SizeIs(round)) << "one line per failure";
  }
}

}  // namespace
