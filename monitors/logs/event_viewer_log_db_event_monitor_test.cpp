#include "monitors/logs/event_viewer_log_db_event_monitor.h"

#include <gtest/gtest.h>

#include "client/store/failing_disk.h"
#include "platform/simulated/simulated_event_log.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

TEST(EventViewerLogDBTest, ADaysEventsAreCountedAndTheLogsMeasured) {
  MonitorWorld world;
  platform::SimulatedEventLog& log = world.machine.event_log();
  const auto append = [&](const char* channel, const char* provider, std::uint32_t id) {
    log.Append({.channel = channel,
                .provider = provider,
                .id = id,
                .level = 2,
                .time = world.runtime.clock().Now(),
                .data = {{"Text", "s3cret"}}});
  };
  for (int i = 0; i < 3; ++i)
    append("Application", "Contoso", 7);
  append("Application", "Contoso", 9);
  for (std::uint32_t id = 0; id < EventViewerLogDBEventMonitor::kMostCounts + 10; ++id)
    append("System", "Many", id);
  log.Fail("Security", platform::EventLogTrouble::kAccessRefused);
  ServiceLife life(world);
  RunningMonitor monitor(world.runtime, std::make_unique<EventViewerLogDBEventMonitor>(life.services()));
  const auto items = [&] {
    world.runtime.Settle();
    std::map<std::wstring, ItemData> by_channel;
    for (const ItemEvent& item : life.Items(L"ReadLogDBPerDay"))
      by_channel[item.item_data().at(L"Channel")] = item.item_data();
    return by_channel;
  };
  auto first = items();
  ASSERT_EQ(first.size(), 3u) << "and none of the channel that may not be read";
  EXPECT_EQ(first[L"Application"], (ItemData{{L"Channel", L"Application"},
                                             {L"Events", L"4"},
                                             {L"Bytes", L"2048"},
                                             {L"MostBytes", L"20971520"},
                                             {L"FillLevel", L"0"},
                                             {L"OldestEvent", L"2026-01-01T00:00:00+00:00"},
                                             {L"EventsOfTheDay", L"4"},
                                             {L"Counts",
                                              L"[{\"count\":3,\"id\":7,\"level\":2,\"provider\":\"Contoso\"},"
                                              L"{\"count\":1,\"id\":9,\"level\":2,\"provider\":\"Contoso\"}]"}}));
  EXPECT_EQ(first[L"System"][L"EventsOfTheDay"], L"210");
  EXPECT_EQ(first[L"System"][L"OtherEvents"], L"10");
  EXPECT_EQ(first[L"Setup"][L"Counts"], L"[]");
  world.runtime.AdvanceBy(1h);
  append("Application", "Contoso", 9);
  world.runtime.AdvanceBy(22h + 59min);
  EXPECT_EQ(life.Items(L"ReadLogDBPerDay").size(), 3u);
  world.runtime.AdvanceBy(2min);
  auto second = items();
  EXPECT_EQ(second[L"Application"][L"Events"], L"5");
  EXPECT_EQ(second[L"Application"][L"EventsOfTheDay"], L"1");
  log.RefuseReaders();
  world.runtime.AdvanceBy(24h);
  auto third = items();
  EXPECT_EQ(third[L"Application"][L"Events"], L"5");
  EXPECT_FALSE(third[L"Application"].contains(L"EventsOfTheDay")) << "nobody knows";
  EXPECT_FALSE(third[L"Application"].contains(L"Counts"));
}

TEST(EventViewerLogDBTest, WhatWasLoggedWithoutConsentIsNeverCounted) {
  MonitorWorld world;
  std::optional<ServiceLife> life;
  std::optional<RunningMonitor> monitor;
  const auto log = [&](std::uint32_t id) {
    world.machine.event_log().Append(
        {.channel = "Application", .provider = "Contoso", .id = id, .level = 2, .time = world.runtime.clock().Now()});
    world.runtime.AdvanceBy(1min);
  };
  const auto start = [&] {
    monitor.reset();
    life.emplace(world);
    monitor.emplace(world.runtime, std::make_unique<EventViewerLogDBEventMonitor>(life->services()));
    world.runtime.Settle();
  };
  const auto counted = [&] {
    world.runtime.Settle();
    std::wstring all;
    for (const ItemEvent& item : life->Items(L"ReadLogDBPerDay")) {
      if (item.item_data().at(L"Channel") == L"Application") all += item.item_data().at(L"EventsOfTheDay") + L" ";
    }
    return all;
  };
  log(1);
  start();
  EXPECT_EQ(counted(), L"1 ") << "a first start looks back";
  log(2);
  life->consent.given = false;
  log(3);
  monitor.reset();
  log(4);
  start();
  log(5);
  start();  // as after a kill
  log(6);
  log(7);
  world.runtime.AdvanceBy(24h - 5min);
  EXPECT_EQ(counted(), L"3 ");
  log(8);
  world.runtime.AdvanceBy(24h - 3min);
  EXPECT_EQ(counted(), L"3 ") << "not yet";
  world.runtime.AdvanceBy(3min);
  EXPECT_EQ(counted(), L"3 1 ") << "the next is of a day again";
}

TEST(EventViewerLogDBTest, AReportWaitsForTheStore) {
  for (const bool closed : {false, true}) {
    SCOPED_TRACE(closed ? "closed" : "not to be read");
    MonitorWorld world;
    const auto log = [&] {
      world.machine.event_log().Append(
          {.channel = "Application", .provider = "Contoso", .id = 1, .level = 2, .time = world.runtime.clock().Now()});
    };
    log();
    world.runtime.AdvanceBy(1min);
    { const ServiceLife made(world); }
    FailingDisk disk;
    if (closed) disk.FailAt(1, SQLITE_IOERR_READ, true);
    ServiceLife life(world);
    ASSERT_NE(life.store.is_open(), closed);
    disk.FailAt(1, SQLITE_IOERR_READ, true);
    RunningMonitor monitor(world.runtime, std::make_unique<EventViewerLogDBEventMonitor>(life.services()));
    world.runtime.AdvanceBy(61s);
    EXPECT_EQ(world.logs.Count(L"since when is counted cannot be told"), 1u);
    disk.FailAt(0, 0, false);
    log();
    world.runtime.AdvanceBy(2min + 1s);
    const auto items = life.Items(L"ReadLogDBPerDay");
    ASSERT_EQ(items.size(), 4u);
    EXPECT_EQ(items[0].item_data().at(L"EventsOfTheDay"), L"2");
  }
}

}  // namespace
}  // namespace TVK
