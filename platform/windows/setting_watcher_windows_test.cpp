#include <gtest/gtest.h>

#include "platform/local.h"
#include "platform/settings.h"
#include "platform/windows/doors_windows.h"
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
  bool Becomes(int index, const std::string& expected) {
    std::string value;
    while (watcher_->Read(index, value) != 0 || value != expected) {
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
  const std::unique_ptr<Settings> settings_ = MakeSettings();
  std::unique_ptr<SettingWatcher> watcher_ = settings_->OpenWatcher(*runtime_, [this](int) { told_->Set(); });
};

TEST_F(SettingWatcherWindowsTest, FollowsAValueWhoseKeyComesGoesAndComesAgain) {
  ASSERT_TRUE(watcher_->HasUser());
  const int index = watcher_->Add(SettingRoot::kCurrentUser, key_, L"Value");
  ASSERT_EQ(index, 1);
  std::string value = "before";
  EXPECT_EQ(watcher_->Read(index, value), kErrorNoSuchSetting);
  EXPECT_EQ(value, "");
  Set(L"Value", L"one");
  EXPECT_TRUE(Becomes(index, "one"));
  Set(L"Value", L"two");
  EXPECT_TRUE(Becomes(index, "two"));
  Remove();
  Set(L"Value", L"three");
  EXPECT_TRUE(Becomes(index, "three"));
  EXPECT_EQ(watcher_->Read(2, value), kErrorNoSuchSetting);
}

TEST_F(SettingWatcherWindowsTest, ChangesOfTheMachineAndAFollowedUserAreTold) {
  const int machine = watcher_->Add(SettingRoot::kLocalMachine, L"Software", L"Absent");
  const int user = watcher_->Add(SettingRoot::kCurrentUser, key_, L"Value");
  EXPECT_EQ(machine, 1);
  EXPECT_EQ(user, 2);
  watcher_->FollowUser();
  EXPECT_EQ(runtime_->Wait(*told_, milliseconds(0)), 0u);
  Set(L"Value", L"after");
  EXPECT_TRUE(Becomes(user, "after"));
}

}  // namespace
}  // namespace platform::windows
