#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>

#include "platform/local.h"
#include "platform/windows/settings_windows.h"
#include "platform/windows/sys.h"

namespace platform::windows {
namespace {

using std::chrono::milliseconds;

constexpr DWORD kRemote = 7;

/// A registry that behaves as Windows documents it where this system does not.
class PlayedRegistry final : public RegistryNotices {
 public:
  DWORD Open(HKEY root, const wchar_t* path, HKEY* key) override {
    const std::lock_guard lock(mutex_);
    ++opens;
    if (const std::wstring name = path; name.empty()) {
      *key = root;  // the predefined key itself
    } else if (refusal != ERROR_SUCCESS || !keys_.contains(name)) {
      return refusal != ERROR_SUCCESS ? refusal.load() : static_cast<DWORD>(ERROR_FILE_NOT_FOUND);
    } else {
      *key = reinterpret_cast<HKEY>(++last_handle_);
      open_[*key] = {name, nullptr};
    }
    return ERROR_SUCCESS;
  }

  DWORD Arm(HKEY key, DWORD what, HANDLE signal) override {
    const std::lock_guard lock(mutex_);
    if (!open_.contains(key)) {
      ++arms_of_predefined_keys;
      return ERROR_SUCCESS;
    }
    EXPECT_TRUE(what & REG_NOTIFY_THREAD_AGNOSTIC) << "it would end with the arming thread";
    EXPECT_EQ(open_[key].signal, nullptr) << "a second arming of one handle waits for the first one's changes";
    open_[key].signal = signal;
    changed_.notify_all();
    return ERROR_SUCCESS;
  }

  // Closing signals, also the predefined key, which every watch of the process shares.
  void Close(HKEY key) override {
    const std::lock_guard lock(mutex_);
    if (const HANDLE signal = open_[key].signal; signal != nullptr) SetEvent(signal);
    open_.erase(key);
    changed_.notify_all();
  }

  void Make(std::initializer_list<const wchar_t*> names) {
    const std::lock_guard lock(mutex_);
    keys_.insert(names.begin(), names.end());
  }
  /// Everything from `name` downwards; who watches the key itself is not told.
  void Remove(const std::wstring& name) {
    const std::lock_guard lock(mutex_);
    std::erase_if(keys_, [&](const std::wstring& key) { return key.starts_with(name); });
  }
  void Signal(const std::wstring& name) {
    const std::lock_guard lock(mutex_);
    for (auto& [key, state] : open_) {
      if (state.name == name && state.signal != nullptr) SetEvent(std::exchange(state.signal, nullptr));
    }
  }
  /// Waits until keys of exactly these names are watched, in the order of the alphabet.
  bool Watches(const std::vector<std::wstring>& names) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return WatchedLocked() == names; });
  }
  std::vector<std::wstring> Watched() {
    const std::lock_guard lock(mutex_);
    return WatchedLocked();
  }

  std::atomic<int> opens = 0;
  std::atomic<int> arms_of_predefined_keys = 0;
  std::atomic<DWORD> refusal = ERROR_SUCCESS;  ///< Of each opening.

 private:
  struct State {
    std::wstring name;
    HANDLE signal = nullptr;
  };

  std::vector<std::wstring> WatchedLocked() const {
    std::vector<std::wstring> names;
    for (const auto& [key, state] : open_) {
      if (state.signal != nullptr) names.push_back(state.name);
    }
    std::ranges::sort(names);
    return names;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::wstring> keys_;
  std::map<HKEY, State> open_;
  std::uintptr_t last_handle_ = 0;
};

/// Sessions whose users are told by their number alone.
class PlayedSessions final : public Sessions {
 public:
  DWORD Console() override { return console; }
  std::vector<DWORD> Active() override { return active; }
  DWORD Own() override { return own; }
  DWORD UserToken(DWORD session, UniqueKernelHandle&) override {
    asked_ = session;
    return errors.contains(session) ? errors.at(session) : static_cast<DWORD>(ERROR_SUCCESS);
  }
  std::string SidOf(HANDLE) override { return "S-" + std::to_string(asked_); }

  DWORD console = 1;
  std::vector<DWORD> active;
  std::map<DWORD, DWORD> errors;
  DWORD own = 0;

 private:
  DWORD asked_ = kNoSession;
};

TEST(FindLoggedInUserTest, TheConsoleComesFirstAndWhoeverMayNotBeAskedForIsPassedOver) {
  PlayedSessions sessions;
  EXPECT_EQ(FindLoggedInUser(sessions), (SessionUser{"S-1", 1}));
  sessions.active = {1, kRemote};
  EXPECT_EQ(FindLoggedInUser(sessions, {1}), (SessionUser{"S-7", kRemote})) << "the console's user is leaving";
  sessions.console = kNoSession;
  sessions.active = {kRemote, 8};
  EXPECT_EQ(FindLoggedInUser(sessions), (SessionUser{"S-7", kRemote})) << "the console is being switched";
  for (const DWORD error : {ERROR_ACCESS_DENIED, ERROR_NO_TOKEN, ERROR_PRIVILEGE_NOT_HELD}) {
    sessions.errors[kRemote] = error;
    EXPECT_EQ(FindLoggedInUser(sessions), (SessionUser{"S-8", 8})) << error;
  }
  sessions.active = {kRemote};
  sessions.own = kRemote;
  EXPECT_EQ(FindLoggedInUser(sessions).value_or(SessionUser()).session, kRemote) << "the account counts itself";
  sessions.errors[kRemote] = ERROR_NO_TOKEN;
  EXPECT_FALSE(FindLoggedInUser(sessions)) << "nobody uses it";
}

class PlayedSettingWatcher : public testing::Test {
 protected:
  ~PlayedSettingWatcher() override {
    watcher_ = nullptr;
    EXPECT_TRUE(registry_.Watched().empty());
    EXPECT_EQ(registry_.arms_of_predefined_keys, 0);
  }

  PlayedRegistry registry_;
  PlayedSessions sessions_;
  std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  std::unique_ptr<Event> told_ = runtime_->MakeEvent(EventReset::kAuto);
  std::unique_ptr<Semaphore> troubles_ = runtime_->MakeSemaphore(0, 1000);
  std::atomic<std::uint32_t> last_error_ = 0;
  const std::unique_ptr<Settings> settings_ = MakeSettings(
      {{Setting::kNation, {true, L"Panel\\Geo", L"Nation"}}, {Setting::kBuild, {false, L"SOFTWARE", L"Build"}}},
      {registry_, sessions_, milliseconds(1)});
  std::unique_ptr<SettingWatcher> watcher_ =
      settings_->OpenWatcher(*runtime_, {.changed = [this](Setting) { told_->Set(); },
                                         .trouble =
                                             [this](Setting, std::uint32_t error) {
                                               last_error_ = error;
                                               troubles_->Release(1);
                                             }});
  static constexpr milliseconds kPatience = std::chrono::seconds(20);
};

TEST_F(PlayedSettingWatcher, AUsersPartThatIsGoneIsToldOnceAndWaitedForWithoutItsRoot) {
  registry_.Make({L"S-1", L"S-1\\Panel", L"S-1\\Panel\\Geo"});
  ASSERT_EQ(watcher_->Add(Setting::kNation), 0u);
  EXPECT_EQ(registry_.Watched(), (std::vector<std::wstring>{L"S-1\\Panel", L"S-1\\Panel\\Geo"}));
  registry_.Remove(L"S-1");
  registry_.Signal(L"S-1\\Panel");
  ASSERT_EQ(runtime_->Wait(*troubles_, kPatience), 0u);
  EXPECT_EQ(last_error_, static_cast<std::uint32_t>(ERROR_FILE_NOT_FOUND));
  const int before = registry_.opens;
  while (registry_.opens < before + 9)  // three tries of three keys
    ASSERT_EQ(runtime_->Wait(*told_, kPatience), 0u);
  EXPECT_EQ(runtime_->Wait(*troubles_, milliseconds(0)), kWaitTimeout) << "told once";
  registry_.Make({L"S-1", L"S-1\\Panel", L"S-1\\Panel\\Geo"});
  ASSERT_EQ(runtime_->Wait(*troubles_, kPatience), 0u);
  EXPECT_EQ(last_error_, 0u);
}

TEST_F(PlayedSettingWatcher, AKeyThatGoesWithoutAWordIsSeenAndItsReturnToo) {
  registry_.Make({L"S-1", L"S-1\\Panel", L"S-1\\Panel\\Geo", L"SOFTWARE"});
  ASSERT_EQ(watcher_->Add(Setting::kNation), 0u);
  registry_.Remove(L"S-1\\Panel\\Geo");
  registry_.Signal(L"S-1\\Panel");
  ASSERT_TRUE(registry_.Watches({L"S-1", L"S-1\\Panel"}));
  ASSERT_EQ(runtime_->Wait(*told_, kPatience), 0u);
  registry_.Make({L"S-1\\Panel\\Geo"});
  registry_.Signal(L"S-1\\Panel");
  ASSERT_TRUE(registry_.Watches({L"S-1\\Panel", L"S-1\\Panel\\Geo"}));
  ASSERT_EQ(watcher_->Add(Setting::kBuild), 0u) << "the uppermost key has none above it to watch";
  EXPECT_TRUE(registry_.Watches({L"S-1\\Panel", L"S-1\\Panel\\Geo", L"SOFTWARE"}));
}

TEST_F(PlayedSettingWatcher, ALogoffLeavesNothingOpenAndASwitchIsFollowed) {
  registry_.Make({L"S-1", L"S-1\\Panel", L"S-1\\Panel\\Geo", L"S-2", L"S-2\\Panel"});
  ASSERT_EQ(watcher_->Add(Setting::kNation), 0u);
  sessions_.errors[3] = ERROR_NO_TOKEN;
  sessions_.console = 3;
  watcher_->OnSessionChange({SessionChangeKind::kConsoleConnect, 3});
  EXPECT_EQ(registry_.Watched().back(), L"S-1\\Panel\\Geo") << "nobody is there yet: the last one's stands";
  sessions_.console = 2;
  watcher_->OnSessionChange({SessionChangeKind::kConsoleConnect, 2});
  EXPECT_EQ(registry_.Watched(), (std::vector<std::wstring>{L"S-2", L"S-2\\Panel"}));
  EXPECT_EQ(runtime_->Wait(*told_, milliseconds(0)), 0u);
  const int before = registry_.opens;
  watcher_->OnSessionChange({SessionChangeKind::kLogon, 2});
  EXPECT_EQ(registry_.opens, before) << "the one who is followed already";
  EXPECT_EQ(runtime_->Wait(*told_, milliseconds(0)), 0u) << "what was restored signals nothing, so it is looked at";

  watcher_->OnSessionChange({SessionChangeKind::kLogoff, 2});
  EXPECT_TRUE(registry_.Watched().empty()) << "the session can still be asked for its user";
  EXPECT_FALSE(watcher_->HasUser());
  std::string value;
  EXPECT_EQ(watcher_->Read(Setting::kNation, value), kErrorNoSuchSetting);
  watcher_->OnSessionChange({SessionChangeKind::kConsoleDisconnect, 2});
  EXPECT_TRUE(registry_.Watched().empty());
  watcher_->OnSessionChange({SessionChangeKind::kLogon, 2});
  EXPECT_EQ(registry_.Watched().back(), L"S-2\\Panel");
}

TEST_F(PlayedSettingWatcher, ARefusalIsToldAndTriedAgain) {
  registry_.Make({L"SOFTWARE"});
  registry_.refusal = ERROR_NO_SYSTEM_RESOURCES;
  EXPECT_EQ(watcher_->Add(Setting::kBuild), 0u);
  ASSERT_EQ(runtime_->Wait(*troubles_, milliseconds(0)), 0u);
  EXPECT_EQ(last_error_, static_cast<std::uint32_t>(ERROR_NO_SYSTEM_RESOURCES));
  registry_.refusal = ERROR_SUCCESS;
  EXPECT_TRUE(registry_.Watches({L"SOFTWARE"}));
  ASSERT_EQ(runtime_->Wait(*told_, kPatience), 0u) << "what changed meanwhile is read";
}

class SettingWatcherWindowsTest : public testing::Test {
 protected:
  SettingWatcherWindowsTest() { Remove(); }
  ~SettingWatcherWindowsTest() override {
    watcher_ = nullptr;
    Remove();
  }

  void Remove() const { RegDeleteTreeW(HKEY_CURRENT_USER, top_.c_str()); }
  void Set(const wchar_t* name, const std::wstring& text) const {
    ASSERT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, key_.c_str(), name, REG_SZ, text.c_str(),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
              ERROR_SUCCESS);
  }

  // Waits until what is told of makes the setting read `expected`; false when it never does.
  bool Becomes(Setting setting, const std::string& expected) {
    std::string value;
    while (watcher_->Read(setting, value) != 0 || value != expected) {
      if (runtime_->Wait(*told_, std::chrono::seconds(20)) != 0) return false;
    }
    return true;
  }

  // The test's name keeps tests apart that run at the same time.
  const std::string test_ = testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::wstring top_ = L"Software\\Tvk" + std::wstring(test_.begin(), test_.end());
  const std::wstring key_ = top_ + L"\\Deep\\Deeper";
  std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  std::unique_ptr<Event> told_ = runtime_->MakeEvent(EventReset::kAuto);
  const std::unique_ptr<Settings> settings_ =
      MakeSettings({{Setting::kBuild, {false, L"Software", L"Absent"}}, {Setting::kNation, {true, key_, L"Value"}}});
  std::unique_ptr<SettingWatcher> watcher_ = settings_->OpenWatcher(
      *runtime_, {.changed = [this](Setting) { told_->Set(); }, .trouble = [](Setting, std::uint32_t) {}});
};

TEST_F(SettingWatcherWindowsTest, FollowsAValueWhoseKeyComesGoesAndComesAgain) {
  ASSERT_TRUE(watcher_->HasUser());
  std::string value = "before";
  EXPECT_EQ(watcher_->Read(Setting::kNation, value), kErrorNoSuchSetting) << "not added";
  ASSERT_EQ(watcher_->Add(Setting::kNation), 0u);
  EXPECT_EQ(watcher_->Add(Setting::kBuild), 0u);
  EXPECT_EQ(watcher_->Read(Setting::kNation, value), kErrorNoSuchSetting);
  EXPECT_EQ(value, "");
  Set(L"Value", L"one");
  EXPECT_TRUE(Becomes(Setting::kNation, "one"));
  Set(L"Value", L"two");
  EXPECT_TRUE(Becomes(Setting::kNation, "two"));
  Remove();
  Set(L"Value", L"three");
  EXPECT_TRUE(Becomes(Setting::kNation, "three"));
}

}  // namespace
}  // namespace platform::windows
