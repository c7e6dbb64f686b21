#include "common/sys_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/recording_logger.h"
#include "support/system_version.h"

namespace {

using tarsio::ClientDeviceInfo;
using tarsio::SysInfo;
using tarsio_test::LogRecords;
using tarsio_test::SystemVersion;
using testing::IsEmpty;

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

// ---- the record ----

using Fields = std::vector<std::string>;

Fields FieldsOf(const ClientDeviceInfo& info) {
  return {info.osArch, info.reserved, info.osVersion, info.osManufacturingModel};
}

InfoPtr MakeInfo(const std::string& reserved) {
  return std::make_shared<ClientDeviceInfo>(
      ClientDeviceInfo{"arch", reserved, "version", std::string(1000, 'm')});
}

TEST(ClientDeviceInfo, Empty) { EXPECT_EQ(FieldsOf({}), Fields(4)); }

// The field named for the architecture holds the system's name, and the one named for the model
// holds the architecture (by design).
TEST(SysInfo, Fields) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const std::string& reserved : {std::string(), std::string("kept\0as it is", 13)}) {
    InfoPtr info = MakeInfo(reserved);
    const InfoPtr same = info;
    for (int round = 0; round < 2; ++round) {
      EXPECT_TRUE(SysInfo::GetClientOsInfo(info));
      EXPECT_EQ(info, same);
      EXPECT_EQ(info.use_count(), 2);
      EXPECT_EQ(FieldsOf(*info), (Fields{"Windows", reserved, SystemVersion(), "x64"}));
    }
  }
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST(SysInfo, Threads) {
  const Fields expected{"Windows", "r", SystemVersion(), "x64"};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        InfoPtr info = MakeInfo("r");
        if (!SysInfo::GetClientOsInfo(info) || FieldsOf(*info) != expected) ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

}  // namespace
