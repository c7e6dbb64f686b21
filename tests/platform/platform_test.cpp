// The platform layer, called directly, for limits and failures that are hard to reach through the
// interface. The calls that transfer data or return file sizes are wrapped.

#include "platform/platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "support/environment.h"
#include "support/named_pipe.h"
#include "support/scoped_directory.h"
#include "support/transfers.h"

namespace {

namespace platform = tarsio::platform;
using platform::File;
using platform::WriteMode;
using tarsio_test::ClaimedTransfers;
using tarsio_test::FailingStat;
using tarsio_test::NamedPipe;
using tarsio_test::ScopedDirectory;
using tarsio_test::ScopedVariable;
using tarsio_test::SmallTransfers;

constexpr size_t kLarge = 1000;

TEST(PlatformProcess, NoFork) { EXPECT_EQ(platform::ForkCount(), 0); }

// The capacity includes the terminator.
TEST(PlatformString, Capacity) {
  const ScopedVariable ascii("TARSIO_TEST_FITS", "abc");
  EXPECT_EQ(platform::Environment(L"TARSIO_TEST_FITS", 4), L"abc");
  EXPECT_EQ(platform::Environment(L"TARSIO_TEST_FITS", 3), L"");
  const ScopedVariable pair("TARSIO_TEST_PAIR", "\xF0\x9F\x98\x80");
  EXPECT_EQ(platform::Environment(L"TARSIO_TEST_PAIR", 3).size(), 2U);
  EXPECT_EQ(platform::Environment(L"TARSIO_TEST_PAIR", 2), L"");

  const std::wstring full = platform::FullPath(L"name", kLarge);
  ASSERT_FALSE(full.empty());
  EXPECT_EQ(platform::FullPath(L"name", full.size() + 1), full);
  EXPECT_EQ(platform::FullPath(L"name", full.size()), L"");

  const std::wstring directory = platform::CurrentDirectory(kLarge);
  ASSERT_FALSE(directory.empty());
  EXPECT_EQ(platform::CurrentDirectory(directory.size() + 1), directory);
  EXPECT_EQ(platform::CurrentDirectory(directory.size()), L"");
}

// Not even a drive or a share.
TEST(PlatformString, Device) {
  const struct {
    const wchar_t* path;
    const wchar_t* full;
  } rows[] = {{LR"(\\?\C:\..)", LR"(\\?\)"},
              {LR"(\\?\C:\..\..\x)", LR"(\\?\x)"},
              {LR"(\\?\C:\a.\.\..\b. )", LR"(\\?\C:\b)"},
              {LR"(\\?\UNC\srv\share\..\..\x)", LR"(\\?\UNC\x)"},
              {L"//?/C:/x", LR"(\\?\C:\x)"},
              {L"//./x/../y", LR"(\\.\y)"},
              {LR"(\\.)", LR"(\\.\)"},
              {LR"(\\?)", LR"(\\.\)"}};
  for (const auto& row : rows) EXPECT_EQ(platform::FullPath(row.path, kLarge), row.full);
}

TEST(PlatformTime, LocalTime) {
  constexpr int64_t kSummerOf2100 = 4118083200;
  std::tm local{};
  EXPECT_TRUE(platform::LocalTime(kSummerOf2100, &local));
  EXPECT_EQ(local.tm_year, 200);
  EXPECT_FALSE(platform::LocalTime(INT64_MAX, &local));
}

// ---- files and directories ----

class PlatformObject : public testing::Test {
 protected:
  std::wstring Full(const std::string& name) const {
    return platform::FullPath(platform::Widen(directory.Text(name)), kLarge);
  }
  std::filesystem::perms Permissions(const std::string& name) const {
    return std::filesystem::status(directory.Native(name)).permissions();
  }

  const ScopedDirectory directory;
};

TEST_F(PlatformObject, Threads) {
  for (int round = 0; round < 50; ++round) {
    const std::string common = "round" + std::to_string(round) + "/a/b/c/";
    std::vector<std::future<bool>> made;
    for (const char* name : {"1", "2", "3", "4"}) {
      made.push_back(std::async(std::launch::async, [chain = Full(common + name)] {
        return platform::CreateDirectories(chain);
      }));
    }
    for (auto& each : made) EXPECT_TRUE(each.get()) << common;
  }
}

TEST_F(PlatformObject, Mode) {
  std::filesystem::create_directory(directory.Native("a directory"));
  ASSERT_TRUE(platform::CreateOneDirectory(Full("one")));
  ASSERT_TRUE(platform::CreateDirectories(Full("chain/link")));
  EXPECT_EQ(Permissions("one"), Permissions("a directory"));
  EXPECT_EQ(Permissions("chain"), Permissions("a directory"));
  EXPECT_EQ(Permissions("chain/link"), Permissions("a directory"));

  directory.Write("a file", "");
  ASSERT_TRUE(File::OpenForWriting(Full("new"), WriteMode{}).IsOpen());
  EXPECT_EQ(Permissions("new"), Permissions("a file"));
}

TEST_F(PlatformObject, NoStat) {
  directory.Write("file", "");
  for (const uint64_t size : {uint64_t{0}, uint64_t{7}, uint64_t{5000000007}}) {
    std::filesystem::resize_file(directory.Native("file"), size);
    const auto expectSizes = [&] {
      EXPECT_EQ(platform::SizeOf(Full("file")), size);
      EXPECT_EQ(platform::Status(Full("file")).size, size);
      EXPECT_EQ(platform::SizeOf(Full("missing")), 0U);
    };
    expectSizes();
    const FailingStat failing;
    expectSizes();
  }
}

// A pipe cannot be positioned.
TEST_F(PlatformObject, Pipe) {
  for (const bool atEnd : {true, false}) {
    SCOPED_TRACE(atEnd);
    const NamedPipe pipe;
    WriteMode mode{};
    mode.mustExist = true;
    mode.atEnd = atEnd;
    File output = File::OpenForWriting(NamedPipe::Text(), mode);
    EXPECT_EQ(output.IsOpen(), !atEnd);
    if (output.IsOpen()) output.Write("abc", 3);
    EXPECT_EQ(pipe.Received(), atEnd ? "" : "abc");
    EXPECT_EQ(pipe.HasWriter(), output.IsOpen());
  }
}

// A file that is opened as descriptor 0 would take the place of standard input.
TEST_F(PlatformObject, Descriptor) {
  directory.Write("file", "content");
  ASSERT_EQ(std::fclose(stdin), 0);
  const File input = File::OpenForReading(Full("file"));
  const File output = File::OpenForWriting(Full("other"), WriteMode{});
  ASSERT_TRUE(input.IsOpen() && output.IsOpen());
  std::FILE* const next = std::fopen(directory.Native("file").string().c_str(), "r");
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(fileno(next), 0) << "descriptor 0 was free";
  std::fclose(next);
}

// ---- transfers ----

// Returns `size` bytes without repeated parts.
std::string Bytes(size_t size) {
  std::string bytes;
  for (size_t i = 0; bytes.size() < size; ++i) bytes += std::to_string(i) + ' ';
  bytes.resize(size);
  return bytes;
}

TEST_F(PlatformObject, Partial) {
  const std::string content = Bytes(1000);
  for (const size_t most : {0U, 1U, 7U, 999U, 1000U, 1001U}) {
    SCOPED_TRACE(most);
    const std::string expected = most == 0 ? "" : content;
    directory.Write("file", content);
    std::string copy(content.size() + 10, '?');
    {
      const SmallTransfers small(most);
      File output = File::OpenForWriting(Full("copy"), WriteMode{});
      output.Write(content.data(), content.size());
      File input = File::OpenForReading(Full("file"));
      ASSERT_TRUE(output.IsOpen() && input.IsOpen());
      copy.resize(input.Read(&copy[0], copy.size()));
    }
    EXPECT_EQ(directory.Read("copy"), expected);
    EXPECT_EQ(copy, expected);
    std::filesystem::remove(directory.Native("copy"));
  }
}

TEST_F(PlatformObject, PieceSize) {
  constexpr size_t kPage = 4096;
  File output = File::OpenForWriting(Full("file"), WriteMode{});
  File input = File::OpenForReading(Full("file"));
  ASSERT_TRUE(output.IsOpen() && input.IsOpen());
  std::array<char, 1> untouched{};
  for (const bool reads : {true, false}) {
    for (const uint64_t size : {uint64_t{10}, uint64_t{5000000000}}) {
      const ClaimedTransfers claimed;
      if (reads) {
        EXPECT_EQ(input.Read(untouched.data(), size, size), size);
      } else {
        output.Write(untouched.data(), size);
      }
      EXPECT_EQ(claimed.Bytes(), size);
      EXPECT_LE(claimed.Largest(), size_t{INT_MAX});
      EXPECT_TRUE(claimed.Calls() == 1 || claimed.Largest() % kPage == 0);
      EXPECT_EQ(claimed.Calls() == 1, size == 10);
    }
  }
}

}  // namespace
