#include "framework/event_monitor_base.h"

#include <gtest/gtest.h>

#include "client/text/record_time.h"
#include "client/text/string.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

const std::wstring kId = L"11111111-0000-4000-8000-000000000001";
constexpr wchar_t kItem[] = L"22222222-0000-4000-8000-000000000002";

/// Opens the base's helpers to the tests and remembers its settings.
class BareMonitor final : public EventMonitorBase {
 public:
  explicit BareMonitor(const MonitorServices& services, bool path_changed = false)
      : EventMonitorBase(nullptr, path_changed, services) {
    utility::InitLog(log_, L"Bare.log", 4);
  }
  using EventMonitorBase::getLastItemEventTimeStamp;
  using EventMonitorBase::getLastItemEventTimeStampWithFallback;
  using EventMonitorBase::GetTimeStamp;
  using EventMonitorBase::isItemEventElapsed;
  using EventMonitorBase::IsNewDeviceInitNeeded;
  using EventMonitorBase::isTelemetryScopeNone;
  using EventMonitorBase::SetDevicePathChanged;
  using EventMonitorBase::UpdateDatasetSettingsFromConfigPolicy;

  void Initialize() override {}
  void UnInitialize() override {}
  void StartMonitor(std::wstring /*name*/) override {}
  void StopMonitor() override {}
  std::wstring GetName() const override { return L"Bare"; }
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& given) override {
    settings = given;
    return overrides_settings || EventMonitorBase::UpdateThrottleParameters(given);
  }

  std::map<std::wstring, std::wstring> settings;
  bool overrides_settings = true;
};

class EventMonitorBaseTest : public testing::Test {
 protected:
  MonitorWorld world_{{.start = platform::WallTime(1'800'000'000s), .utc_offset_minutes = 120}};
  ServiceLife life_{world_};
  BareMonitor monitor_{life_.services()};
};

TEST_F(EventMonitorBaseTest, AnItemIsDueWhenItsIntervalHasPassed) {
  struct Row {
    std::int64_t last_minus_now;
    bool due;
    bool due_with_remaining;
    std::uint64_t remaining;
  };
  for (const Row& row : {Row{-3600, true, true, 0}, Row{-3599, false, false, 1}, Row{0, false, false, 3600},
                         Row{3599, false, false, 7199}, Row{3600, false, true, 0}}) {
    SCOPED_TRACE(row.last_minus_now);
    const std::int64_t last = world_.runtime.clock().NowSeconds() + row.last_minus_now;
    std::uint64_t remaining = 99;
    EXPECT_EQ(monitor_.isItemEventElapsed(last, 3600), row.due);
    EXPECT_EQ(monitor_.isItemEventElapsed(last, 3600, remaining), row.due_with_remaining);
    EXPECT_EQ(remaining, row.remaining);
  }
}

TEST_F(EventMonitorBaseTest, TheLastReportIsSoughtInFourPlaces) {
  std::int64_t time = 7;
  EXPECT_FALSE(monitor_.getLastItemEventTimeStampWithFallback(kId, kItem, time));
  EXPECT_EQ(time, 0);
  // From the last resort to the first choice; each is written a minute after the one before.
  const auto write_item = [&](const std::wstring& item_id) {
    ItemEvent event;
    event.set_dataset_id(kId);
    event.set_item_id(item_id);
    event.set_item_time(System::GetTime(world_.runtime.clock()));
    EXPECT_EQ(life_.store.LogItemEvent(event), 0);
  };
  const std::function<void()> writings[] = {
      [&] {
        DeviceContext context;
        context.set_device_context_datetime(System::GetTime(world_.runtime.clock()));
        EXPECT_EQ(life_.store.LogDeviceContext(context), 0);
      },
      [&] {
        DatasetContext context;
        context.set_dataset_id(kId);
        context.set_dataset_context_datetime(System::GetTime(world_.runtime.clock()));
        EXPECT_EQ(life_.store.LogDatasetContext(context), 0);
      },
      [&] { write_item(EventMonitorBase::DeviceInitItemId); },
      [&] { write_item(kItem); },
  };
  for (const auto& write : writings) {
    world_.runtime.AdvanceBy(1min);
    const std::int64_t now = world_.runtime.clock().NowSeconds();
    write();
    world_.runtime.AdvanceBy(10s);
    EXPECT_TRUE(monitor_.getLastItemEventTimeStampWithFallback(kId, kItem, time));
    EXPECT_EQ(time, now);
  }
  EXPECT_TRUE(monitor_.getLastItemEventTimeStampWithFallback(L"another dataset", kItem, time)) << "the device context";
}

TEST_F(EventMonitorBaseTest, TimesOfRecordsAreLocalAndNeverNegative) {
  EXPECT_EQ(monitor_.GetTimeStamp("2026-01-31T09:05:00+0200"), monitor_.GetTimeStamp("2026-01-31T09:05:00+0000"));
  const auto write = [&](const wchar_t* when) {
    ItemEvent event;
    event.set_dataset_id(kId);
    event.set_item_id(kItem);
    event.set_item_time(when);
    EXPECT_EQ(life_.store.LogItemEvent(event), 0);
  };
  std::int64_t time = -5;
  EXPECT_FALSE(monitor_.getLastItemEventTimeStamp(kId, kItem, time));
  EXPECT_EQ(time, world_.runtime.clock().NowSeconds());
  time = 7;
  EXPECT_FALSE(monitor_.getLastItemEventTimeStamp(kId, kItem, time));
  EXPECT_EQ(time, 7);
  write(L"1955-01-01T00:00:00+0000");
  write(L"2026-01-31T09:05:00+0200");
  EXPECT_TRUE(monitor_.getLastItemEventTimeStamp(kId, kItem, time)) << "the earliest counts";
  EXPECT_EQ(time, world_.runtime.clock().NowSeconds());
  EXPECT_TRUE(monitor_.getLastItemEventTimeStampWithFallback(kId, kItem, time)) << "the last counts";
  EXPECT_EQ(time, monitor_.GetTimeStamp("2026-01-31T09:05:00+0200"));
}

TEST_F(EventMonitorBaseTest, WaitingForAnothersContextEndsOnStopAndTimeout) {
  const auto signalled = world_.runtime.MakeEvent(platform::EventReset::kManual, true);
  const auto never = world_.runtime.MakeEvent(platform::EventReset::kManual);
  struct Row {
    platform::Waitable* stop;
    platform::Waitable* context;
    bool result;
    std::chrono::seconds waits;
  };
  for (const Row& row : {
           Row{never.get(), signalled.get(), false, 0s},
           Row{signalled.get(), never.get(), true, 0s},
           Row{signalled.get(), signalled.get(), true, 0s},
           Row{never.get(), never.get(), true, 3s},
           Row{nullptr, signalled.get(), true, 0s},
           Row{signalled.get(), nullptr, true, 0s},
       }) {
    platform::Waitable* const handles[] = {row.stop, row.context};
    const platform::SteadyTime before = world_.runtime.clock().Steady();
    EXPECT_EQ(monitor_.WaitForDatasetContextLog(handles, 3000, L"Other"), row.result);
    EXPECT_EQ(world_.runtime.clock().Steady() - before, row.waits);
  }
}

TEST_F(EventMonitorBaseTest, ItemDataLoseEmptyAndUnknownValues) {
  ItemData data = {{L"a", L""}, {L"b", L"UnKnown"}, {L"c", L"unknown"}, {L"d", L"x"}};
  EventMonitorBase::SanitizeItemData(data, L"UnKnown");
  EXPECT_EQ(data, (ItemData{{L"c", L"unknown"}, {L"d", L"x"}}));
}

TEST_F(EventMonitorBaseTest, SettingsAreThoseOfTheFirstEntryWithExactlyThisId) {
  EXPECT_FALSE(monitor_.UpdateDatasetSettingsFromConfigPolicy(kId));
  TelemetryPolicy policy = MakePolicy(L"full", {{L"abc", L"A"}, {L"ABC", L"B"}, {L"ABC", L"C"}});
  for (DataSet& dataset : policy.datasets)
    dataset.settings = {{L"name", dataset.name}};
  world_.config.SetPolicy(policy);
  EXPECT_TRUE(monitor_.UpdateDatasetSettingsFromConfigPolicy(L"ABC"));
  EXPECT_EQ(monitor_.settings.at(L"name"), L"B");
  EXPECT_FALSE(monitor_.UpdateDatasetSettingsFromConfigPolicy(L"Abc"));
  monitor_.overrides_settings = false;
  EXPECT_FALSE(monitor_.UpdateDatasetSettingsFromConfigPolicy(L"ABC")) << "what a monitor without settings says";
}

TEST_F(EventMonitorBaseTest, DeviceInitIsNeededOnceForEachReason) {
  struct Row {
    bool first;
    int version_answer;
    bool path_changed;
    bool needed;
  };
  for (const Row& row : {Row{false, 0, false, false}, Row{true, 0, false, true}, Row{false, 1, false, true},
                         Row{false, 2, false, true}, Row{false, 0, true, true}}) {
    life_.manager.first_invocation = row.first;
    life_.manager.version_answer = row.version_answer;
    BareMonitor monitor(life_.services(), row.path_changed);
    EXPECT_EQ(monitor.IsNewDeviceInitNeeded(kId), row.needed);
    if (!row.path_changed) continue;
    monitor.SetDevicePathChanged(false);
    EXPECT_FALSE(monitor.IsNewDeviceInitNeeded(kId));
  }
}

TEST_F(EventMonitorBaseTest, TheScopeNoneIsToldCaseAside) {
  EventMonitorBase::SetTelemetryScope(L"full");
  EXPECT_FALSE(BareMonitor::isTelemetryScopeNone());
  EventMonitorBase::SetTelemetryScope(L"NONE");
  EXPECT_TRUE(BareMonitor::isTelemetryScopeNone());
}

}  // namespace

}  // namespace TVK
