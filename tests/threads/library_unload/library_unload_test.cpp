#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "support/environment.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/scoped_directory.h"
#include "support/shared_library.h"
#include "support/thread_end.h"

namespace {

using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::IsLibraryLoaded;
using tarsio_test::ScopedDirectory;
using tarsio_test::ScopedVariable;
using tarsio_test::SharedLibrary;

// Each test needs a process that has not loaded the library yet.
class LibraryUnload : public testing::Test {
 protected:
  LibraryUnload() {
    EXPECT_FALSE(IsLibraryLoaded(TARSIO_TEST_LIBRARY)) << "already loaded by this program";
    plugin.emplace(TARSIO_TEST_PLUGIN);
    EXPECT_TRUE(plugin->IsLoaded());
  }
  void Unload() {
    plugin->Unload();
    EXPECT_TRUE(IsLibraryLoaded(TARSIO_TEST_LIBRARY));
    EXPECT_FALSE(plugin->IsLoaded());
  }
  // Calls a function of the plugin that gives `callback` to a new pool or timer. Never destroyed.
  const std::shared_ptr<void>& Run(const char* function, std::function<void()> callback) {
    using Function = std::shared_ptr<void>*(std::function<void()>*);
    static std::shared_ptr<void>* object = nullptr;
    object = plugin->Function<Function>(function)(&callback);
    return *object;
  }

  std::optional<SharedLibrary> plugin;
};

// The worker is asleep in the library's code when the plugin is unloaded, and goes on running
// there.
TEST_F(LibraryUnload, LiveWorker) {
  const auto ran = std::make_shared<Gate>();
  const auto ended = std::make_shared<Gate>();
  const std::shared_ptr<void>& pool = Run("SubmitToNewPool", [=] {
    tarsio_test::WhenThisThreadEnds([ended] { ended->Open(); });
    ran->Open();
  });
  ASSERT_TRUE(ran->WaitFor());
  Unload();
  EXPECT_EQ(pool.use_count(), 2) << "the worker is idle";
  ASSERT_TRUE(ended->WaitFor());
  EXPECT_EQ(pool.use_count(), 1);
}

TEST_F(LibraryUnload, RunningTask) {
  const auto begun = std::make_shared<Gate>();
  const auto end = std::make_shared<Gate>();
  const auto ended = std::make_shared<Gate>();
  const std::shared_ptr<void>& pool = Run("SubmitToNewPool", [=] {
    tarsio_test::WhenThisThreadEnds([ended] { ended->Open(); });
    begun->Open();
    end->Wait();
  });
  ASSERT_TRUE(begun->WaitFor());
  Unload();
  end->Open();
  ASSERT_TRUE(ended->WaitFor());
  EXPECT_EQ(pool.use_count(), 1);
}

// The timer fires until the process has ended.
TEST_F(LibraryUnload, LiveTimer) {
  Events& fired = *new Events;
  Run("StartNewTimer", [&fired] { fired.Add(); });
  ASSERT_TRUE(fired.Await(2));
  Unload();
  EXPECT_TRUE(fired.Await(fired.Count() + 3));
}

// On Windows the worker may be killed while it holds the C++ runtime's lock for thread-local keys.
// This process has not used that lock yet.
TEST_F(LibraryUnload, ExitRace) {
  const auto ending = std::make_shared<Gate>();
  const std::shared_ptr<void>& pool = Run("SubmitToNewPool", [=] {
    tarsio_test::WhenThisThreadEnds([ending] {
      ending->Open();
      std::this_thread::sleep_for(std::chrono::hours(1));
    });
  });
  ASSERT_TRUE(ending->WaitFor());
  EXPECT_EQ(pool.use_count(), 1);
}

TEST_F(LibraryUnload, GlobalLocale) {
  const ScopedDirectory directory;
  const ScopedVariable user("LC_ALL", "C");
  plugin->Function<void()>("MakeUserLocaleGlobal")();
  Unload();
  std::wofstream(directory.Native("file")) << L"abc";
  EXPECT_EQ(directory.Read("file"), "abc");
}

}  // namespace
