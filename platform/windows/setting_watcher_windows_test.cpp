#include <gtest/gtest.h>

#include "platform/local.h"
#include "platform/windows/settings_windows.h"
#include "platform/windows/sys.h"

namespace platform::windows {
namespace {

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
  std::unique_ptr<SettingWatcher> watcher_ = settings_->OpenWatcher(*runtime_, [this](Setting) { told_->Set(); });
};

TEST_F(SettingWatcherWindowsTest, FollowsAValueWhoseKeyComesGoesAndComesAgain) {
  ASSERT_TRUE(watcher_->HasUser());
  std::string value = "before";
  EXPECT_EQ(watcher_->Read(Setting::kNation, value), kErrorNoSuchSetting) << "not added";
  ASSERT_EQ(watcher_->Add(Setting::kNation), 0u);
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

TEST_F(SettingWatcherWindowsTest, ChangesOfTheMachineAndAFollowedUserAreTold) {
  EXPECT_EQ(watcher_->Add(Setting::kBuild), 0u);
  EXPECT_EQ(watcher_->Add(Setting::kNation), 0u);
  watcher_->FollowUser();
  EXPECT_EQ(runtime_->Wait(*told_, milliseconds(0)), 0u);
  Set(L"Value", L"after");
  EXPECT_TRUE(Becomes(Setting::kNation, "after"));
}

}  // namespace
}  // namespace platform::windows
