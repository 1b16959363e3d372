// What only Linux's watcher follows: folders that go while they are watched (on Windows a watched folder stays until
// its watcher has let go of it), and symbolic links.
#include <gtest/gtest.h>
#include <sys/resource.h>
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

enum class Do { kWrite, kLink, kMove, kRemove, kMakeFolder };

// What is done below the folder of a case, which is the working folder of none: paths as in "a/b".
struct Act {
  Do what;
  std::string path;
  std::string other{};  // the text, the link's target ("/a" is the case's "a"), the new name
};

class FileWatcherLinuxTest : public testing::Test {
 protected:
  void Perform(const std::vector<Act>& acts) const {
    for (const Act& act : acts) {
      const fs::path path = root_ / act.path;
      if (act.what == Do::kRemove) fs::remove_all(path);
      if (act.what == Do::kMove) fs::rename(path, root_ / act.other);
      if (act.what == Do::kMakeFolder) fs::create_directories(path);
      if (act.what != Do::kWrite && act.what != Do::kLink) continue;
      fs::create_directories(path.parent_path());
      if (act.what == Do::kWrite) std::ofstream(path) << act.other;
      if (act.what == Do::kWrite) continue;
      // A link takes its name in one step, whatever had it before.
      fs::create_symlink(act.other.starts_with('/') ? root_ / act.other.substr(1) : fs::path(act.other),
                         root_ / "fresh");
      fs::rename(root_ / "fresh", path);
    }
  }
  void Watch(
      const char* file, std::function<void()> look = [] {}) {
    watcher_ = FileWatcher::Watch(*runtime_, {root_ / file}, [this, look = std::move(look)] {
      look();
      changed_->Set();
    });
    ASSERT_TRUE(watcher_);
  }
  bool Changed() { return runtime_->Wait(*changed_, std::chrono::seconds(20)) == 0; }

  const TempFolder temp_;
  fs::path root_ = temp_.path();
  const std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  const std::unique_ptr<Event> changed_ = runtime_->MakeEvent(EventReset::kAuto);
  std::unique_ptr<FileWatcher> watcher_;
};

TEST_F(FileWatcherLinuxTest, FoldersMayGoAndComeBack) {
  Perform({{Do::kMakeFolder, "a/b"}});
  Watch("a/b/policy.json");
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    for (const Act& act : {
             Act{Do::kWrite, "a/b/policy.json", "here"},
             Act{Do::kRemove, "a"},
             Act{Do::kMakeFolder, "a/b"},
             Act{Do::kWrite, "a/b/policy.json", "again"},
             // Moved away: what is written there is another file's business; what comes in its place is ours.
             Act{Do::kMove, "a/b", "a/old"},
             Act{Do::kMakeFolder, "a/b"},
         }) {
      changed_->Reset();
      Perform({act});
      EXPECT_TRUE(Changed()) << act.path;
    }
    Perform({{Do::kRemove, "a/old"}});
  }
}

TEST_F(FileWatcherLinuxTest, WhatThePathStandsForIsFollowed) {
  // Each step changes what the watched path gives, to its own number: 1, 2, ...
  struct Row {
    const char* name;
    const char* watched;
    std::vector<Act> before;
    std::vector<std::vector<Act>> steps;
  };
  for (const Row& row : {
           Row{"the file a link stands for",
               "p/policy.json",
               {{Do::kWrite, "else/b.json", "0"}, {Do::kLink, "p/policy.json", "/else/b.json"}},
               {{{Do::kWrite, "else/b.json", "1"}},
                {{Do::kWrite, "else/new", "2"}, {Do::kMove, "else/new", "else/b.json"}},
                {{Do::kWrite, "p/new", "3"}, {Do::kMove, "p/new", "p/policy.json"}},
                {{Do::kWrite, "p/policy.json", "4"}}}},
           Row{"a file that becomes a link",
               "p/policy.json",
               {{Do::kWrite, "p/policy.json", "0"}},
               {{{Do::kWrite, "else/b.json", "1"}, {Do::kLink, "p/policy.json", "../else/b.json"}},
                {{Do::kWrite, "else/b.json", "2"}}}},
           Row{"a folder that is a link",
               "now/policy.json",
               {{Do::kWrite, "a/policy.json", "0"}, {Do::kWrite, "b/policy.json", "1"}, {Do::kLink, "now", "a"}},
               {{{Do::kLink, "now", "b"}}, {{Do::kWrite, "b/policy.json", "2"}}}},
           Row{"a configuration volume",
               "p/policy.json",
               {{Do::kWrite, "p/..1/policy.json", "0"},
                {Do::kWrite, "p/..2/policy.json", "1"},
                {Do::kLink, "p/..data", "..1"},
                {Do::kLink, "p/policy.json", "..data/policy.json"}},
               {{{Do::kLink, "p/..data", "..2"}, {Do::kRemove, "p/..1"}}, {{Do::kWrite, "p/..2/policy.json", "2"}}}},
           Row{"a link to what comes later",
               "policy.json",
               {{Do::kLink, "policy.json", "later/x/../b.json"}},
               {{{Do::kWrite, "later/b.json", "1"}, {Do::kMakeFolder, "later/x"}},
                {{Do::kWrite, "later/b.json", "2"}}}},
           Row{"a link in a circle, mended",
               "policy.json",
               {{Do::kLink, "policy.json", "other"}, {Do::kLink, "other", "policy.json"}},
               {{{Do::kWrite, "new", "1"}, {Do::kMove, "new", "other"}}}},
           Row{"a folder further up",
               "g/h/p/policy.json",
               {{Do::kWrite, "g/h/p/policy.json", "0"}},
               {{{Do::kMove, "g", "g.old"}, {Do::kWrite, "g/h/p/policy.json", "1"}},
                {{Do::kWrite, "g/h/p/policy.json", "2"}}}},
       }) {
    SCOPED_TRACE(row.name);
    root_ = temp_.path() / row.name;
    Perform(row.before);
    std::atomic<int> seen = 0;
    Watch(row.watched,
          [&, file = root_ / row.watched] { seen = std::atoi(ReadWholeFile(file, 10).value_or("").c_str()); });
    for (int step = 1; const std::vector<Act>& acts : row.steps) {
      Perform(acts);
      while (seen != step && Changed()) {
      }
      ASSERT_EQ(seen, step);
      ++step;
    }
    watcher_.reset();
  }
}

#ifndef __SANITIZE_ADDRESS__
// The sanitiser that comes with it looks a class up through a pipe, for which it has no descriptor then.
TEST_F(FileWatcherLinuxTest, AWatchThatTheSystemRefusedIsTriedAgainAndMissesNothing) {
  Perform({{Do::kMakeFolder, "a"}});
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  {
    // Room for one descriptor more, by which its thread is ended.
    const int next = ::dup(STDERR_FILENO);
    ::close(next);
    const rlimit tight{static_cast<rlim_t>(next) + 1, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
  }
  Watch("a/policy.json");
  const bool looked = Changed();
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_TRUE(looked) << "while nobody tells of changes";
  Perform({{Do::kWrite, "a/policy.json", "here"}});
  EXPECT_TRUE(Changed());
}
#endif

}  // namespace
}  // namespace platform
