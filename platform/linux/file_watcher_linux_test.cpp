// What only Linux's watcher follows: folders that go while they are watched (on Windows a watched folder stays until
// its watcher has let go of it), and symbolic links.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "platform/file_watcher.h"
#include "platform/files.h"
#include "platform/local.h"
#include "testing/temp_folder.h"

namespace platform {
namespace {

namespace fs = std::filesystem;

TEST(FileWatcherLinuxTest, FoldersMayGoAndComeBack) {
  const fs::path base = fs::temp_directory_path() / ("tvk-watch-go-" + std::to_string(::getpid()));
  const fs::path file = base / "a" / "b" / "policy.json";
  fs::create_directories(file.parent_path());
  const auto runtime = MakeRealRuntime({});
  const auto changed = runtime->MakeEvent(EventReset::kManual);
  auto watcher = FileWatcher::Watch(*runtime, {file}, [&] { changed->Set(); });
  ASSERT_TRUE(watcher);
  const auto changes_on = [&](const std::function<void()>& action) {
    changed->Reset();
    action();
    return runtime->Wait(*changed, std::chrono::seconds(20)) == 0;
  };
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    EXPECT_TRUE(changes_on([&] { std::ofstream(file) << "here"; }));
    EXPECT_TRUE(changes_on([&] { fs::remove_all(base / "a"); }));
    EXPECT_TRUE(changes_on([&] { fs::create_directories(file.parent_path()); }));
    EXPECT_TRUE(changes_on([&] { std::ofstream(file) << "again"; }));
    // Moved away: what is written there is another file's business; what comes in its place is ours.
    EXPECT_TRUE(changes_on([&] { fs::rename(file.parent_path(), base / "a" / "old"); }));
    EXPECT_TRUE(changes_on([&] { fs::create_directories(file.parent_path()); }));
    fs::remove_all(base / "a" / "old");
  }
  watcher.reset();
  std::error_code ignored;
  fs::remove_all(base, ignored);
}

// Below the folder of a case, which is the working folder of none: paths as in "a/b".
class Tree {
 public:
  fs::path operator/(const fs::path& inner) const { return folder_.path() / inner; }
  void Write(const fs::path& inner, std::string_view text) const {
    fs::create_directories((*this / inner).parent_path());
    std::ofstream(*this / inner) << text;
  }
  // A link takes its name in one step, whatever had it before.
  void Link(const fs::path& inner, const fs::path& target) const {
    fs::create_directories((*this / inner).parent_path());
    fs::create_symlink(target, *this / "fresh");
    Move("fresh", inner);
  }
  void Move(const fs::path& from, const fs::path& to) const { fs::rename(*this / from, *this / to); }

 private:
  const TempFolder folder_;
};

TEST(FileWatcherLinuxTest, WhatThePathStandsForIsFollowed) {
  // Each step changes what the watched path gives, to its own number: 1, 2, ...
  struct Case {
    const char* name;
    const char* watched;
    std::function<void(const Tree&)> before;
    std::vector<std::function<void(const Tree&)>> steps;
  };
  const Case cases[] = {
      {"the file a link stands for",
       "p/policy.json",
       [](const Tree& tree) {
         tree.Write("else/b.json", "0");
         tree.Link("p/policy.json", tree / "else/b.json");
       },
       {[](const Tree& tree) { tree.Write("else/b.json", "1"); },
        [](const Tree& tree) {
          tree.Write("else/new", "2");
          tree.Move("else/new", "else/b.json");
        },
        [](const Tree& tree) {
          tree.Write("p/new", "3");
          tree.Move("p/new", "p/policy.json");
        },
        [](const Tree& tree) { tree.Write("p/policy.json", "4"); }}},
      {"a file that becomes a link",
       "p/policy.json",
       [](const Tree& tree) { tree.Write("p/policy.json", "0"); },
       {[](const Tree& tree) {
          tree.Write("else/b.json", "1");
          tree.Link("p/policy.json", "../else/b.json");
        },
        [](const Tree& tree) { tree.Write("else/b.json", "2"); }}},
      {"a folder that is a link",
       "now/policy.json",
       [](const Tree& tree) {
         tree.Write("a/policy.json", "0");
         tree.Write("b/policy.json", "1");
         tree.Link("now", "a");
       },
       {[](const Tree& tree) { tree.Link("now", "b"); }, [](const Tree& tree) { tree.Write("b/policy.json", "2"); }}},
      {"a configuration volume",
       "p/policy.json",
       [](const Tree& tree) {
         tree.Write("p/..1/policy.json", "0");
         tree.Write("p/..2/policy.json", "1");
         tree.Link("p/..data", "..1");
         tree.Link("p/policy.json", "..data/policy.json");
       },
       {[](const Tree& tree) {
          tree.Link("p/..data", "..2");
          fs::remove_all(tree / "p/..1");
        },
        [](const Tree& tree) { tree.Write("p/..2/policy.json", "2"); }}},
      {"a link to what comes later",
       "policy.json",
       [](const Tree& tree) { tree.Link("policy.json", "later/x/../b.json"); },
       {[](const Tree& tree) {
          tree.Write("later/b.json", "1");
          fs::create_directory(tree / "later/x");
        },
        [](const Tree& tree) { tree.Write("later/b.json", "2"); }}},
      {"a link in a circle, mended",
       "policy.json",
       [](const Tree& tree) {
         tree.Link("policy.json", "other");
         tree.Link("other", "policy.json");
       },
       {[](const Tree& tree) {
         tree.Write("new", "1");
         tree.Move("new", "other");
       }}},
      {"a folder further up",
       "g/h/p/policy.json",
       [](const Tree& tree) { tree.Write("g/h/p/policy.json", "0"); },
       {[](const Tree& tree) {
          tree.Move("g", "g.old");
          tree.Write("g/h/p/policy.json", "1");
        },
        [](const Tree& tree) { tree.Write("g/h/p/policy.json", "2"); }}},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.name);
    const Tree tree;
    row.before(tree);
    const auto runtime = MakeRealRuntime({});
    const auto changed = runtime->MakeEvent(EventReset::kAuto);
    std::atomic<int> seen = 0;
    const auto watcher = FileWatcher::Watch(*runtime, {tree / row.watched}, [&] {
      seen = std::atoi(ReadWholeFile(tree / row.watched, 10).value_or("").c_str());
      changed->Set();
    });
    ASSERT_TRUE(watcher);
    for (int step = 1; const auto& action : row.steps) {
      action(tree);
      while (seen != step && runtime->Wait(*changed, std::chrono::seconds(20)) == 0) {
      }
      ASSERT_EQ(seen, step);
      ++step;
    }
  }
}

TEST(FileWatcherLinuxTest, PermissionsOfTheFolderAreAChange) {
  const Tree tree;
  tree.Write("p/policy.json", "");
  const auto runtime = MakeRealRuntime({});
  const auto changed = runtime->MakeEvent(EventReset::kAuto);
  const auto watcher = FileWatcher::Watch(*runtime, {tree / "p/policy.json"}, [&] { changed->Set(); });
  ASSERT_TRUE(watcher);
  for (const unsigned mode : {0000u, 0755u}) {
    fs::permissions(tree / "p", fs::perms(mode));
    EXPECT_EQ(runtime->Wait(*changed, std::chrono::seconds(20)), 0u) << mode;
  }
}

}  // namespace
}  // namespace platform
