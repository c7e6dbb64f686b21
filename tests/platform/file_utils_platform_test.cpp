// Whole files on a fake file system that changes at a given step.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>

#include "common/file_utils.h"
#include "support/fake_platform.h"
#include "support/file_reading.h"

namespace {

using tarsio::FILE_OPT_EMPTY_OR_UNREADABLE;
using tarsio::FILE_OPT_NOT_FILE;
using tarsio::FILE_OPT_SIZE_MISMATCH;
using tarsio::FILE_OPT_SUCCESS;
using tarsio::FILE_OPT_WRITE_OPEN_FAILED;
using tarsio::FileOptRet;
using tarsio::FileUtils;
using tarsio::platform::FileType;
using tarsio_test::Content;
using tarsio_test::Failure;
using tarsio_test::FakePlatform;
using tarsio_test::ReadFile;
using tarsio_test::Reading;
using testing::AnyOf;
using testing::ElementsAre;

constexpr char kFile[] = R"(C:\file.bin)";
constexpr char kStored[] = "0123456789";

// One file; all other paths are directories.
struct FileSystem : FakePlatform {
  FileSystem() {
    objects[kFile] = FileType::kOther;
    otherObjects = FileType::kDirectory;
    content = kStored;
  }
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;
  ~FileSystem() { EXPECT_EQ(openFiles, 0) << "not closed"; }
};

// Reads the file repeatedly. Each time the change happens one step later, until the file has been
// read before.
TEST(FileUtilsOs, ChangingFile) {
  const struct {
    const char* name;
    void (*change)(FakePlatform& fake);
    Reading first;  // the change happens before the call
    std::set<FileOptRet> results;
  } rows[] = {
      {"grows",
       [](FakePlatform& fake) { fake.content += "more"; },
       Content("0123456789more"),
       {FILE_OPT_SUCCESS, FILE_OPT_SIZE_MISMATCH}},
      {"shrinks",
       [](FakePlatform& fake) { fake.content.resize(5); },
       Content("01234"),
       {FILE_OPT_SUCCESS, FILE_OPT_SIZE_MISMATCH}},
      {"is emptied",
       [](FakePlatform& fake) { fake.content.clear(); },
       Failure(FILE_OPT_EMPTY_OR_UNREADABLE),
       {FILE_OPT_SUCCESS, FILE_OPT_SIZE_MISMATCH, FILE_OPT_EMPTY_OR_UNREADABLE}},
      {"vanishes",  // an open file can still be read
       [](FakePlatform& fake) { fake.objects[kFile] = FileType::kNone; },
       Failure(FILE_OPT_NOT_FILE),
       {FILE_OPT_SUCCESS, FILE_OPT_NOT_FILE, FILE_OPT_EMPTY_OR_UNREADABLE}},
  };
  for (const auto& row : rows) {
    std::set<FileOptRet> results;
    bool changed = true;
    for (size_t step = 0; changed; ++step) {
      SCOPED_TRACE(row.name + (" " + std::to_string(step)));
      FileSystem system;
      changed = false;
      system.eventAt = step;
      system.event = [&] {
        changed = true;
        row.change(system);
      };
      const Reading reading = ReadFile(kFile);
      if (reading.result == FILE_OPT_SUCCESS) {
        EXPECT_THAT(reading, AnyOf(row.first, Content(kStored)));
      } else {
        EXPECT_EQ(reading, Failure(reading.result));
      }
      if (step == 0) {
        EXPECT_EQ(reading, row.first);
      }
      results.insert(reading.result);
    }
    EXPECT_EQ(results, row.results) << row.name;
  }
}

TEST(FileUtilsOs, NoPermission) {
  FileSystem system;
  system.opens = false;
  EXPECT_EQ(ReadFile(kFile), Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
  EXPECT_EQ(FileUtils::WriteFile("new", kFile, 0), FILE_OPT_WRITE_OPEN_FAILED);
  EXPECT_EQ(system.content, kStored);
}

// Write errors are not reported; the call returns however little the disk accepts.
TEST(FileUtilsOs, FullDisk) {
  FileSystem system;
  for (const size_t room : {0U, 1U, 7U, 10U, 100U}) {
    SCOPED_TRACE(room);
    system.room = room;
    EXPECT_EQ(FileUtils::WriteFile(kStored, kFile, 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(system.content, std::string(kStored).substr(0, room));
    EXPECT_EQ(system.openFiles, 0);
  }
}

// On some systems the modes have the same effect.
TEST(FileUtilsOs, TextModes) {
  FileSystem system;
  int opened = 0;
  for (int mode = 0; mode < 0x40; ++mode) {
    SCOPED_TRACE(mode);
    if (FileUtils::WriteFile("x", kFile, mode) != FILE_OPT_SUCCESS) continue;
    ++opened;
    EXPECT_EQ(system.mode.text, mode < 0x20);
  }
  EXPECT_EQ(opened, 48);
}

// ---- directories ----

TEST(FileUtilsOs, MakeDir) {
  FakePlatform system;
  EXPECT_TRUE(FileUtils::MakeDir(R"(C:/a\\b//c\d)"));
  EXPECT_THAT(system.Calls(),
              ElementsAre("TypeOf C:", "CreateDirectoryNarrow C:/", R"(TypeOf C:\a)",
                          R"(CreateDirectoryNarrow C:/a\)", R"(TypeOf C:\a)",
                          R"(CreateDirectoryNarrow C:/a\\)", R"(TypeOf C:\a\b)",
                          R"(CreateDirectoryNarrow C:/a\\b/)", R"(TypeOf C:\a\b)",
                          R"(CreateDirectoryNarrow C:/a\\b//)", R"(TypeOf C:\a\b\c)",
                          R"(CreateDirectoryNarrow C:/a\\b//c\)"));

  system.objects = {{"a", FileType::kDirectory}, {R"(a\file)", FileType::kOther}};
  EXPECT_TRUE(FileUtils::MakeDir("a/file/c"));
  EXPECT_THAT(system.Calls(), ElementsAre("TypeOf a", R"(TypeOf a\file)"));

  system.changes = false;
  EXPECT_FALSE(FileUtils::MakeDir("a/b/c/d/"));
  EXPECT_THAT(system.Calls(),
              ElementsAre("TypeOf a", R"(TypeOf a\b)", "CreateDirectoryNarrow a/b/"));
}

// ---- long paths ----

std::string PathOfLength(size_t length, const std::string& root) {
  const std::string name = "\\file.bin";
  return root + '\\' + std::string(length - root.size() - 1 - name.size(), 'd') + name;
}

std::string Printed(const std::string& text) {
  if (text.size() < 260) return text;
  return text[0] == '\\' ? R"(\\?\UNC\)" + text.substr(2) : R"(\\?\)" + text;
}

// Some systems ignore a missing prefix, so it has to be checked here.
TEST(FileUtilsOs, LongPrefix) {
  for (const char* root : {"C:", R"(\\server\share)"}) {
    for (const size_t length : {100U, 259U, 260U, 261U, 268U, 269U, 1000U, 3900U, 32000U}) {
      SCOPED_TRACE(root + (' ' + std::to_string(length)));
      const std::string text = PathOfLength(length, root);
      const std::string path = Printed(text);
      FileSystem system;
      system.objects[path] = FileType::kOther;
      EXPECT_EQ(FileUtils::WriteFile("x", text, 0), FILE_OPT_SUCCESS);
      EXPECT_EQ(ReadFile(text), Content("x"));
      EXPECT_TRUE(FileUtils::CheckDirOrFileExists(text));
      EXPECT_THAT(system.Calls(),
                  ElementsAre("TypeOf " + Printed(text.substr(0, text.rfind('\\'))),
                              "OpenForWriting " + path, "TypeOf " + path, "SizeOf " + path,
                              "OpenForReading " + path, "Read", "Read", "TypeOf " + path));
    }
  }
}

// The narrow calls get the caller's bytes, with or without a prefix.
TEST(FileUtilsOs, NarrowNames) {
  FakePlatform system;
  for (const std::string& text : {PathOfLength(3900, "C:"), PathOfLength(300, R"(\\?\C:)"),
                                  std::string("C:/a//b \xFF.bin"), std::string()}) {
    for (const bool removes : {true, false}) {
      system.changes = removes;
      EXPECT_EQ(FileUtils::RemoveDir(text), removes);
      EXPECT_EQ(FileUtils::RemoveFile(text), removes);
      EXPECT_THAT(system.Calls(),
                  ElementsAre("RemoveDirectoryNarrow " + text, "RemoveFileNarrow " + text));
    }
  }
}

}  // namespace
