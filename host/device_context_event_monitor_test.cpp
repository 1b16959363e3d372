#include "host/device_context_event_monitor.h"

#include <gtest/gtest.h>

#include "platform/simulated/simulated_machine.h"
#include "platform/simulated/simulated_system.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/log_capture.h"

namespace {

class DeviceContextEventMonitorTest : public testing::Test {
 protected:
  // Whether the change raises the event.
  bool RaisedBy(const std::function<void(platform::SimulatedSystemState&)>& change) {
    machine_.system().Change(change);
    return Raised();
  }
  bool Raised() {
    runtime_.Settle();
    return runtime_.Wait(*monitor_.getRegionChangeEventHandle(), platform::milliseconds(0)) == 0;
  }
  bool RaisedByNation(const std::string& nation) {
    machine_.region().Change([&](auto& state) { state.facts.nation = nation; });
    return Raised();
  }
  bool RaisedByLocale(const std::string& name) {
    machine_.region().Change([&](auto& state) { state.facts.locale_name = name; });
    return Raised();
  }

  LogCapture log_;
  platform::VirtualRuntime runtime_;
  platform::SimulatedMachine machine_;
  MachineInformation information_{machine_, runtime_.clock()};
  DeviceContextEventMonitor monitor_{runtime_, machine_, information_};
};

TEST_F(DeviceContextEventMonitorTest, TrueChangesRaiseTheEventWithTheFactsAlreadyRefreshed) {
  monitor_.Start();
  EXPECT_EQ(information_.os_version(), L"1.0");
  EXPECT_TRUE(RaisedBy([](auto& state) { state.facts.version = "2.0"; }));
  EXPECT_EQ(information_.os_version(), L"2.0");
  EXPECT_FALSE(RaisedBy([](auto& state) { state.facts.version = ""; }));
  EXPECT_FALSE(RaisedBy([](auto& state) { state.facts.version = "2.0"; })) << "nothing was stored meanwhile";
  EXPECT_FALSE(RaisedBy([](auto& state) { state.facts.update_title = "22H2"; }));
  EXPECT_FALSE(RaisedBy([](auto& state) { state.facts.name = std::string(4096, 'x'); })) << "longer than any name";
  EXPECT_TRUE(RaisedBy([](auto& state) { state.facts.name = "Simulated OS Pro"; }));
}

TEST_F(DeviceContextEventMonitorTest, EqualAndImpossibleValuesAreNotSignalledButTheWayBackIs) {
  monitor_.Start();
  EXPECT_FALSE(RaisedByNation("US"));
  EXPECT_TRUE(RaisedByNation("DE"));
  EXPECT_FALSE(RaisedByNation("YY"));
  EXPECT_FALSE(RaisedByNation("YY"));
  EXPECT_TRUE(RaisedByNation("DE")) << "back to the value before";
  EXPECT_FALSE(RaisedByNation(""));
  EXPECT_TRUE(RaisedByNation("DE")) << "the return of the region counts";
  EXPECT_TRUE(RaisedByLocale("de-DE"));
  EXPECT_FALSE(RaisedByLocale("xx-DE"));
  EXPECT_TRUE(RaisedByLocale("en-US"));
}

TEST_F(DeviceContextEventMonitorTest, UserSettingsAreWatchedOnceAUserLogsOn) {
  machine_.system().Change([](auto& state) { state.logged_in_user.clear(); });
  EXPECT_FALSE(monitor_.TryAddUserRelatedMonitors()) << "not started";
  monitor_.Start();
  EXPECT_TRUE(log_.Has(L"Failed to add user related registry monitors."));
  EXPECT_FALSE(RaisedByNation("DE"));
  EXPECT_TRUE(RaisedBy([](auto& state) { state.facts.version = "2.0"; }));

  monitor_.OnSessionChange({platform::SessionChangeKind::kLogon, 1});
  EXPECT_FALSE(log_.Has(L"Added user related registry monitors on user logon.")) << "it cannot be asked for yet";
  machine_.system().Change([](auto& state) { state.logged_in_user = "1000"; });
  EXPECT_TRUE(monitor_.TryAddUserRelatedMonitors());
  monitor_.OnSessionChange({platform::SessionChangeKind::kLogon, 2});
  EXPECT_EQ(log_.Count(L"Added user related registry monitors on user logon."), 1u);
  EXPECT_FALSE(RaisedByNation("DE"));
  EXPECT_TRUE(RaisedByNation("FR"));
  EXPECT_EQ(log_.Count(L"Setting event on region change"), 2u) << "each setting is watched once";
}

TEST_F(DeviceContextEventMonitorTest, ALogonCountsWhenTheUsersRegionIsNotTheOneReadBefore) {
  for (const auto& [nation, locale, raised] : {std::tuple("US", "en-US", false), std::tuple("YY", "xx-US", false),
                                               std::tuple("DE", "en-US", true), std::tuple("US", "de-DE", true)}) {
    SCOPED_TRACE(nation + std::string(locale));
    machine_.region().Set({});
    machine_.system().Change([](auto& state) { state.logged_in_user.clear(); });
    information_.ReInitialize(true);
    monitor_.Start();
    EXPECT_FALSE(RaisedByNation(nation) || RaisedByLocale(locale)) << "of nobody yet";
    EXPECT_TRUE(monitor_.TryAddUserRelatedMonitors());
    EXPECT_EQ(runtime_.Wait(*monitor_.getRegionChangeEventHandle(), platform::milliseconds(0)) == 0, raised);
    monitor_.Stop();
  }
}

TEST_F(DeviceContextEventMonitorTest, StopsInEveryStateAndStartsAgain) {
  monitor_.Stop();
  EXPECT_EQ(monitor_.getRegionChangeEventHandle(), nullptr);
  for (int round = 0; round < 2; ++round) {
    monitor_.Start();
    EXPECT_EQ(runtime_.Threads().size(), 1u);
    EXPECT_TRUE(runtime_.OpenNamedEvent(L"Global\\_liveeventDeviceContextEvent").event);
    EXPECT_TRUE(RaisedByNation(round == 0 ? "DE" : "FR"));
    monitor_.Stop();
    EXPECT_FALSE(monitor_.IsReady());
    EXPECT_TRUE(runtime_.Threads().empty());
    EXPECT_FALSE(runtime_.OpenNamedEvent(L"Global\\_liveeventDeviceContextEvent").event);
  }
  monitor_.Stop();
}

TEST_F(DeviceContextEventMonitorTest, SleepsWhileNothingChanges) {
  monitor_.Start();
  runtime_.Settle();
  const std::uint64_t before = runtime_.WakeUps();
  runtime_.AdvanceBy(std::chrono::hours(24));
  EXPECT_EQ(runtime_.WakeUps(), before);
}

TEST_F(DeviceContextEventMonitorTest, ChangesLogonsAndStopMayMeet) {
  machine_.system().Change([](auto& state) { state.logged_in_user.clear(); });
  monitor_.Start();
  std::thread changes = runtime_.StartThread("changes", [&] {
    for (int i = 0; i < 200; ++i)
      machine_.system().Change([&](auto& state) { state.facts.version = std::to_string(i); });
  });
  for (int i = 0; i < 50; ++i)
    EXPECT_TRUE(monitor_.TryAddUserRelatedMonitors());
  monitor_.Stop();
  runtime_.Join(changes);
  EXPECT_TRUE(runtime_.Threads().empty());
}

}  // namespace
