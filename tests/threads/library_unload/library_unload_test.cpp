#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "support/environment.h"
#include "support/gate.h"
#include "support/scoped_directory.h"
#include "support/shared_library.h"
#include "support/thread_end.h"

namespace {

using tarsio_test::Gate;
using tarsio_test::IsLibraryLoaded;
using tarsio_test::ScopedDirectory;
using tarsio_test::ScopedVariable;
using tarsio_test::SharedLibrary;

// Each test needs a process that has not loaded the library yet.
class LibraryUnload : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(IsLibraryLoaded(TARSIO_TEST_LIBRARY)) << "already loaded by this program";
  }
};

// The worker is asleep in the library's code when the plugin is unloaded, and goes on running
// there.
TEST_F(LibraryUnload, LiveWorker) {
  using Submit = std::shared_ptr<void>*(std::function<void()>*);
  static std::shared_ptr<void>* pool = nullptr;
  const auto ran = std::make_shared<Gate>();
  const auto ended = std::make_shared<Gate>();
  SharedLibrary plugin(TARSIO_TEST_PLUGIN);
  ASSERT_TRUE(plugin.IsLoaded());
  EXPECT_TRUE(IsLibraryLoaded(TARSIO_TEST_LIBRARY));
  Submit* const submit = plugin.Function<Submit>("SubmitToNewPool");
  ASSERT_NE(submit, nullptr);
  std::function<void()> task = [=] {
    tarsio_test::WhenThisThreadEnds([ended] { ended->Open(); });
    ran->Open();
  };
  pool = submit(&task);
  ASSERT_TRUE(ran->WaitFor());
  plugin.Unload();
  EXPECT_TRUE(IsLibraryLoaded(TARSIO_TEST_LIBRARY));
  EXPECT_EQ(pool->use_count(), 2) << "the worker is idle";
  ASSERT_TRUE(ended->WaitFor());
  EXPECT_EQ(pool->use_count(), 1);
}

// On Windows the worker may be killed while it holds the C++ runtime's lock for thread-local keys.
// This process has not used that lock yet.
TEST_F(LibraryUnload, ExitRace) {
  using Submit = std::shared_ptr<void>*(std::function<void()>*);
  static std::shared_ptr<void>* pool = nullptr;
  const auto ending = std::make_shared<Gate>();
  SharedLibrary plugin(TARSIO_TEST_PLUGIN);
  ASSERT_TRUE(plugin.IsLoaded());
  Submit* const submit = plugin.Function<Submit>("SubmitToNewPool");
  ASSERT_NE(submit, nullptr);
  std::function<void()> task = [=] {
    tarsio_test::WhenThisThreadEnds([ending] {
      ending->Open();
      std::this_thread::sleep_for(std::chrono::hours(1));
    });
  };
  pool = submit(&task);
  ASSERT_TRUE(ending->WaitFor());
  EXPECT_EQ(pool->use_count(), 1);
}

TEST_F(LibraryUnload, GlobalLocale) {
  const ScopedDirectory directory;
  const ScopedVariable user("LC_ALL", "C");
  SharedLibrary plugin(TARSIO_TEST_PLUGIN);
  ASSERT_TRUE(plugin.IsLoaded());
  auto* const makeUserLocaleGlobal = plugin.Function<void()>("MakeUserLocaleGlobal");
  ASSERT_NE(makeUserLocaleGlobal, nullptr);
  makeUserLocaleGlobal();
  plugin.Unload();
  EXPECT_TRUE(IsLibraryLoaded(TARSIO_TEST_LIBRARY));
  std::wofstream(directory.Native("file")) << L"abc";
  EXPECT_EQ(directory.Read("file"), "abc");
}

}  // namespace
