#include "platform/file_watcher.h"

#include <gtest/gtest.h>

#include <fstream>

#include "platform/file_watching.h"
#include "platform/local.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

// A folder of its own for each test, and a watcher whose callback signals an event.
class FileWatcherTest : public testing::Test {
 protected:
  void Watch(std::vector<std::filesystem::path> files) {
    std::string problem;
    watcher_ = FileWatcher::Watch(
        *runtime_, std::move(files), [this] { changed_->Set(); }, &problem);
    ASSERT_TRUE(watcher_) << problem;
  }

  // Waits for a call that comes after `action`; false when none does.
  bool ChangesOn(const std::function<void()>& action) {
    changed_->Reset();
    action();
    return runtime_->Wait(*changed_, std::chrono::seconds(20)) == 0;
  }

  // As careful writers do: a new file that takes the old one's name.
  static void Replace(const std::filesystem::path& file, std::string_view text) {
    std::filesystem::path fresh = file;
    fresh += ".new";
    Write(fresh, text);
    std::filesystem::rename(fresh, file);
  }
  static void Write(const std::filesystem::path& file, std::string_view text) { std::ofstream(file) << text; }

  const TempFolder temp_;
  const std::filesystem::path folder_ = temp_.path();
  std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  std::unique_ptr<Event> changed_ = runtime_->MakeEvent(EventReset::kManual);
  std::unique_ptr<FileWatcher> watcher_;
};

TEST_F(FileWatcherTest, EveryWayToChangeAFileIsSeen) {
  const std::filesystem::path file = folder_ / "policy.json";
  const std::filesystem::path other = folder_ / "client.json";
  Watch({file, other});
  EXPECT_TRUE(ChangesOn([&] { Write(file, "created"); }));
  EXPECT_TRUE(ChangesOn([&] { Write(file, "written again"); }));
  EXPECT_TRUE(ChangesOn([&] { Replace(file, "replaced"); }));
  EXPECT_TRUE(ChangesOn([&] { Write(other, "second file"); }));
  EXPECT_TRUE(ChangesOn([&] { std::filesystem::remove(file); }));
}

TEST_F(FileWatcherTest, FoldersMayComeLater) {
  const std::filesystem::path deep = folder_ / "a" / "b";
  const std::filesystem::path file = deep / "policy.json";
  Watch({file});
  EXPECT_TRUE(ChangesOn([&] { std::filesystem::create_directories(deep); }));
  // Whether the last folder is watched already or its parent still is: the file's own changes are seen.
  EXPECT_TRUE(ChangesOn([&] { Write(file, "here"); }));
  EXPECT_TRUE(ChangesOn([&] { Replace(file, "replaced"); }));
}

TEST_F(FileWatcherTest, AnotherFolderMayTakeTheNameOfTheFilesOwn) {
  const std::filesystem::path own = folder_ / "own";
  std::filesystem::create_directory(own);
  Watch({own / "policy.json"});
  EXPECT_TRUE(ChangesOn([&] {
    std::filesystem::rename(own, folder_ / "old");
    std::filesystem::create_directory(own);
  }));
  EXPECT_TRUE(ChangesOn([&] { Write(own / "policy.json", "new"); }));
}

TEST_F(FileWatcherTest, AfterItsEndNothingIsCalled) {
  const std::filesystem::path file = folder_ / "policy.json";
  Watch({file});
  EXPECT_TRUE(ChangesOn([&] { Write(file, "before the end"); }));
  watcher_.reset();
  changed_->Reset();
  Write(file, "after the end");
  EXPECT_NE(runtime_->Wait(*changed_, std::chrono::milliseconds(0)), 0u);
}

TEST_F(FileWatcherTest, AfterAnExceptionItIsDoneOnceMore) {
  const std::filesystem::path file = folder_ / "policy.json";
  watcher_ = FileWatcher::Watch(*runtime_, {file}, [&, calls = 0]() mutable {
    if (++calls == 1) throw std::runtime_error("no luck");
    changed_->Set();
  });
  ASSERT_TRUE(watcher_);
  EXPECT_TRUE(ChangesOn([&] { std::filesystem::create_directory(file); }));
  EXPECT_TRUE(ChangesOn([&] { std::filesystem::remove(file); }));
}

TEST_F(FileWatcherTest, AFolderThatIsThereAndCannotBeWatchedIsKnown) {
  const std::filesystem::path file = folder_ / "own" / "policy.json";
  const auto blind = [&](const std::filesystem::path& refused) {
    const auto place = FindWatchPlace(file, [&](const std::filesystem::path& folder) {
      return folder != refused && std::filesystem::exists(folder);
    });
    return place ? (place->blind ? "blind" : place->direct ? "direct" : "above") : "nowhere";
  };
  EXPECT_STREQ(blind(folder_ / "own"), "above") << "it is not there yet";
  std::filesystem::create_directory(folder_ / "own");
  EXPECT_STREQ(blind(folder_ / "own"), "blind");
  EXPECT_STREQ(blind({}), "direct");
}

TEST_F(FileWatcherTest, UnusableListsAreRefusedWithWords) {
  for (const std::vector<std::filesystem::path>& files :
       {std::vector<std::filesystem::path>{}, {folder_ / ""}, std::vector<std::filesystem::path>(33, folder_ / "x")}) {
    std::string problem;
    EXPECT_FALSE(FileWatcher::Watch(
        *runtime_, files, [] {}, &problem));
    EXPECT_NE(problem, "");
  }
}

}  // namespace
}  // namespace platform
