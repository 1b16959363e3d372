#include "platform/linux/system_events_linux.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <utmpx.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "platform/linux/block_device_text.h"
#include "platform/linux/power_wishes.h"
#include "platform/linux/unique_fd.h"
#include "platform/local.h"
#include "testing/recorded_tree.h"

namespace platform {
namespace {

using namespace std::chrono_literals;

TEST(BlockDeviceNoticeTest, DrivesComeAndGo) {
  using enum DriveChange;
  struct Row {
    const char* what;
    BlockDeviceNotice notice;
    std::optional<DriveChange> change;
  };
  const char* const usb = "/devices/pci0000:00/0000:00:14.0/usb2/2-1/block/sdb";
  const char* const paths = "/devices/virtual/nvme-subsystem/nvme-subsys0/nvme0n1";
  for (const Row& row : {
           Row{"plugged", {"sdb", usb, "add", ""}, kAttached},
           Row{"pulled", {"sdb", usb, "remove", ""}, kDetached},
           Row{"a card put into its reader", {"sdb", usb, "change", "1"}, kAttached},
           Row{"other changes", {"sdb", usb, "change", ""}, {}},
           Row{"others yet", {"sdb", usb, "move", "1"}, {}},
           Row{"several paths to one", {"nvme0n1", paths, "add", ""}, kAttached},
           Row{"a disc", {"sr0", usb, "change", "1"}, {}},
           Row{"a mapping", {"dm-0", "/devices/virtual/block/dm-0", "add", ""}, {}},
       })
    EXPECT_EQ(DriveChangeOf(row.notice), row.change) << row.what;
}

/// Notices that the test gives.
class ScriptedNotices final : public KernelNotices {
 public:
  static void Give(const UniqueFd& fd) { EXPECT_EQ(::eventfd_write(fd.get(), 1), 0); }
  static void Take(const UniqueFd& fd) {
    eventfd_t count = 0;
    EXPECT_EQ(::eventfd_read(fd.get(), &count), 0);
  }

  int device_fd() const override { return devices.get(); }
  DeviceNews TakeDevices() override {
    Take(devices);
    const std::lock_guard lock(mutex_);
    return news_;
  }
  /// What the next notices of devices tell.
  void SetNews(DeviceNews news) {
    const std::lock_guard lock(mutex_);
    news_ = std::move(news);
  }
  int clock_fd() const override { return clock.get(); }
  bool TakeClock() override {
    Take(clock);
    return slept;
  }

  int login_fd() const override { return login.get(); }
  int console_fd() const override { return -1; }
  UserSessions TakeSessions() override {
    if (told) Take(login);
    told = true;
    return sessions;
  }

  const UniqueFd devices{::eventfd(0, EFD_CLOEXEC)};
  const UniqueFd clock{::eventfd(0, EFD_CLOEXEC)};
  const UniqueFd login{::eventfd(0, EFD_CLOEXEC)};
  UserSessions sessions;  ///< Set before the login is given.
  bool told = false;      ///< The sessions of the start were.
  std::atomic<bool> slept = false;

 private:
  std::mutex mutex_;  ///< Guards what follows.
  DeviceNews news_ = {.supplies = {"AC", "BAT0"}};
};

class SystemEventsLinuxTest : public testing::Test {
 protected:
  void Supply(const std::string& name, const std::string& type, const std::string& uevent) {
    tree_.Write("/sys/class/power_supply/" + name + "/uevent", "POWER_SUPPLY_NAME=x\n" + uevent);
    tree_.Write("/sys/class/power_supply/" + name + "/type", type);
  }
  void Mains(bool online) { Supply("AC", "Mains\n", online ? "POWER_SUPPLY_ONLINE=1\n" : "POWER_SUPPLY_ONLINE=0\n"); }
  void Battery(int percent, const std::string& more = "") {
    Supply("BAT0", "Battery\n", "POWER_SUPPLY_CAPACITY=" + std::to_string(percent) + "\n" + more);
  }
  std::unique_ptr<SystemEventSource> Follow(std::unique_ptr<KernelNotices> notices, milliseconds poll = 24h) {
    return FollowKernelNotices(*runtime_, std::move(notices), Sysroot(tree_.root()), wishes_, callback_, poll);
  }

  /// The events up to `last`.
  std::vector<SystemEvent> Until(const SystemEvent& last) {
    for (;;) {
      {
        const std::lock_guard lock(mutex_);
        if (!events_.empty() && events_.back() == last) return std::exchange(events_, {});
      }
      if (runtime_->Wait(*told_, 20s) != 0) return {};
    }
  }

  const std::shared_ptr<PowerWishes> wishes_ = std::make_shared<PowerWishes>();
  std::shared_ptr<CHPowerNotifyHandle> wish_ = wishes_->Add();
  RecordedTree tree_;
  std::unique_ptr<Runtime> runtime_ = MakeRealRuntime({});
  std::unique_ptr<Machine> machine_ = OpenLocalMachine({.sysroot = tree_.root()}, runtime_->clock());
  std::unique_ptr<Event> told_ = runtime_->MakeEvent(EventReset::kAuto);
  std::mutex mutex_;  // guards events_
  std::vector<SystemEvent> events_;
  const SystemEventCallback callback_ = [this](const SystemEvent& event) {
    {
      const std::lock_guard lock(mutex_);
      events_.push_back(event);
    }
    told_->Set();
  };
};

TEST_F(SystemEventsLinuxTest, NoticesTellWhatChangedAndNothingElse) {
  using Events = std::vector<SystemEvent>;
  Mains(true);
  Battery(80);
  auto own = std::make_unique<ScriptedNotices>();
  ScriptedNotices& notices = *own;
  auto source = Follow(std::move(own));
  EXPECT_EQ(Until(PowerSource::kAc), Events{PowerSource::kAc}) << "how it is as somebody begins to wish";

  Mains(false);
  ScriptedNotices::Give(notices.devices);
  EXPECT_EQ(Until(PowerSource::kBattery), Events{PowerSource::kBattery}) << "the percentage is the same";
  const auto another_wish = wishes_->Add();
  EXPECT_EQ(Until(PowerSource::kBattery), Events{PowerSource::kBattery}) << "whoever wishes is told";
  Battery(79);
  ScriptedNotices::Give(notices.clock);
  EXPECT_EQ(Until(BatteryPercent{79}), Events{BatteryPercent{79}}) << "somebody set the clock: no sleep";
  Mains(true);
  notices.slept = true;
  ScriptedNotices::Give(notices.clock);
  EXPECT_EQ(Until(PowerSource::kAc), (Events{SleepChange::kSuspend, SleepChange::kResume, PowerSource::kAc}));
  tree_.Remove("/sys/class/power_supply");
  ScriptedNotices::Give(notices.clock);
  EXPECT_EQ(Until(SleepChange::kResume), (Events{SleepChange::kSuspend, SleepChange::kResume}));
  // Behind the resume the supplies are looked at; who is told of a login knows that this look is over.
  notices.sessions.terminals[41] = "tty1";
  ScriptedNotices::Give(notices.login);
  EXPECT_EQ(Until(SessionChange{SessionChangeKind::kLogon, 41}),
            (Events{SessionChange{SessionChangeKind::kLogon, 41}}));
  Mains(true);
  Battery(5);
  ScriptedNotices::Give(notices.devices);
  EXPECT_EQ(Until(BatteryPercent{5}), Events{BatteryPercent{5}}) << "supplies that went and came are no change";
  Battery(4);
  notices.SetNews({.drives = {DriveChange::kDetached, DriveChange::kAttached}});
  ScriptedNotices::Give(notices.devices);
  EXPECT_EQ(Until(DriveChange::kAttached), (Events{DriveChange::kDetached, DriveChange::kAttached}));
  notices.sessions.terminals[42] = "tty2";
  ScriptedNotices::Give(notices.login);
  EXPECT_EQ(Until(SessionChange{SessionChangeKind::kLogon, 42}), (Events{SessionChange{SessionChangeKind::kLogon, 42}}))
      << "no news of the power: nobody looked at the battery";

  Battery(5, "POWER_SUPPLY_SERIAL_NUMBER=2");
  ScriptedNotices::Give(notices.clock);
  EXPECT_EQ(Until(BatteryPercent{5}), (Events{SleepChange::kSuspend, SleepChange::kResume, BatteryPercent{5}}))
      << "another battery, as full as the one before";
  Supply("BAT1", "Battery\n", "POWER_SUPPLY_STATUS=Full");
  notices.SetNews({.supplies = {"AC"}});
  ScriptedNotices::Give(notices.devices);
  EXPECT_EQ(Until(BatteryPercent{5}), Events{BatteryPercent{5}}) << "one more, which tells nothing";
  Battery(4, "POWER_SUPPLY_SERIAL_NUMBER=2");
  notices.SetNews({.lost = true});
  ScriptedNotices::Give(notices.devices);
  EXPECT_EQ(Until(BatteryPercent{4}), (Events{DriveChange::kAttached, BatteryPercent{4}}))
      << "notices that the kernel dropped may have been of anything";
  source = nullptr;
}

TEST_F(SystemEventsLinuxTest, ABatteryWhoseDriverIsSilentIsLookedAt) {
  Battery(80, "POWER_SUPPLY_STATUS=Discharging");
  const auto source = Follow(std::make_unique<ScriptedNotices>(), 1ms);
  EXPECT_FALSE(Until(PowerSource::kBattery).empty()) << "to whoever wishes";
  for (const std::uint32_t percent : {79u, 78u}) {
    tree_.Write("/sys/class/power_supply/BAT0/uevent",
                "POWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_CAPACITY=" + std::to_string(percent));
    EXPECT_FALSE(Until(BatteryPercent{percent}).empty()) << percent;
  }
}

TEST_F(SystemEventsLinuxTest, NobodyLooksWhileNobodyWantsToKnow) {
  Battery(80, "POWER_SUPPLY_STATUS=Discharging");
  wish_.reset();
  auto own = std::make_unique<ScriptedNotices>();
  ScriptedNotices& notices = *own;
  const auto source = Follow(std::move(own), 1ms);
  Battery(79, "POWER_SUPPLY_STATUS=Discharging");
  // The second is told when the thread is through with all that was there at the first.
  const auto log_on = [&](pid_t leader) {
    notices.sessions.terminals[leader] = "tty2";
    ScriptedNotices::Give(notices.login);
    EXPECT_EQ(Until(SessionChange{SessionChangeKind::kLogon, static_cast<std::uint32_t>(leader)}).size(), 1u);
  };
  log_on(42);
  ScriptedNotices::Give(notices.devices);
  log_on(43);
  log_on(44);
  wish_ = wishes_->Add();
  EXPECT_FALSE(Until(PowerSource::kBattery).empty());
  log_on(45);
  log_on(46);
  tree_.Write("/sys/class/power_supply/BAT0/uevent", "POWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_CAPACITY=78");
  EXPECT_FALSE(Until(BatteryPercent{78}).empty());
}

TEST(UserSessionsTest, LoginsAndTheConsoleAreCompared) {
  const auto login = [](pid_t leader, const char* terminal, short type = USER_PROCESS) {
    utmpx record{};
    record.ut_type = type;
    record.ut_pid = leader;
    std::strncpy(record.ut_line, terminal, sizeof record.ut_line);
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
  };
  using enum SessionChangeKind;
  struct Row {
    std::string logins;
    const char* console;
    std::vector<SessionChange> changes;  // since the row before
  };
  const Row rows[] = {
      {login(7, "tty7", LOGIN_PROCESS) + login(0, "tty1"), "tty1\n", {}},
      {login(42, "tty2") + login(43, "pts/0"), "tty1\n", {{kLogon, 42}, {kLogon, 43}}},
      {login(42, "tty2") + login(43, "pts/0"), "tty2\n", {{kConsoleConnect, 42}}},
      {login(42, "tty2") + login(50, "tty3"),
       "tty3\n",
       {{kLogoff, 43}, {kLogon, 50}, {kConsoleDisconnect, 42}, {kConsoleConnect, 50}}},
      {login(42, "tty2") + "half a record", "", {{kLogoff, 50}, {kConsoleDisconnect, 50}}},
      {"", "tty2\n", {{kLogoff, 42}}},
  };
  UserSessions before;
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    const UserSessions after = DecodeUserSessions(row.logins, row.console);
    EXPECT_EQ(CompareUserSessions(before, after), row.changes);
    before = after;
  }
}

TEST_F(SystemEventsLinuxTest, ThisComputerHasASourceAndARecordedOneHasNone) {
  const SystemEventOpening recorded = machine_->system_events().Open(*runtime_, callback_);
  EXPECT_EQ(recorded.source, nullptr);
  EXPECT_EQ(recorded.problem, "");
  const auto own = OpenLocalMachine({}, runtime_->clock());
  const SystemEventOpening opening = own->system_events().Open(*runtime_, callback_);
  EXPECT_NE(opening.source, nullptr) << opening.problem;
}

TEST(KernelNoticesTest, NothingIsReadableWhileNothingHappensAndNoSleepIsMadeUp) {
  std::string problem;
  const auto notices = OpenKernelNotices(problem);
  ASSERT_TRUE(notices) << problem;
  EXPECT_GE(notices->device_fd(), 0);
  EXPECT_GE(notices->clock_fd(), 0);
  EXPECT_FALSE(notices->TakeClock());
  const DeviceNews news = notices->TakeDevices();
  EXPECT_TRUE(news.supplies.empty() && !news.lost);
}

}  // namespace
}  // namespace platform
