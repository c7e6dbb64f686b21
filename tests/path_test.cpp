#include "common/path.h"

#include <gtest/gtest.h>

#include "support/scoped_directory.h"

namespace {

using tarsio::Path;
using tarsio_test::ScopedDirectory;

TEST(Path, DefaultIsEmptyAndRelative) {
  const Path path;
  EXPECT_TRUE(path.Empty());
  EXPECT_FALSE(path.IsAbsolute());
  EXPECT_EQ(path.Str(), "");
}

TEST(MakeDirs, CreatesEveryMissingDirectoryOnceAndForAll) {
  const ScopedDirectory directory;
  EXPECT_TRUE(tarsio::MakeDirs("a/b/c"));
  EXPECT_TRUE(Path(directory.Text("a/b/c")).IsDirectory());
  EXPECT_FALSE(tarsio::MakeDirs("a/b/c"));
}

}  // namespace
