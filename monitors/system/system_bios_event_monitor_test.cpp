#include "monitors/system/system_bios_event_monitor.h"

#include <gtest/gtest.h>

#include "monitors/system/bios_date.h"
#include "platform/simulated/simulated_event_log.h"
#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_system.h"
#include "testing/monitor_world.h"
#include "testing/smbios_builder.h"

namespace TVK {
namespace {

using platform::EventLogFailure;
using platform::EventLogQuery;
using platform::EventLogReading;
using platform::EventLogRecord;
using std::chrono::hours;

class SystemBiosEventMonitorTest : public testing::Test {
 protected:
  SystemBiosEventMonitorTest() { BootAt(Now() - 3600); }

  std::int64_t Now() const { return world_.runtime.clock().NowSeconds(); }
  /// Without an id: a system that does not name its boots.
  void BootAt(std::optional<std::int64_t> time, const std::string& id = {}) {
    world_.machine.system().Change([&](auto& state) {
      state.boot_time = time;
      state.boot_id = id;
    });
  }
  void Log(std::function<EventLogReading(const EventLogQuery&)> log) { world_.machine.event_log().Set(std::move(log)); }
  /// Runs the service once; the records of that run.
  struct Records {
    std::vector<ItemEvent> items;
    std::vector<DatasetContext> contexts;
  };
  Records Run(bool first_invocation = false, bool device_changes = false) {
    ServiceLife life(world_);
    life.manager.first_invocation = first_invocation;
    RunningMonitor monitor(world_.runtime, std::make_unique<SystemBiosEventMonitor>(life.services()));
    world_.runtime.AdvanceBy(hours(1));
    EXPECT_TRUE(world_.runtime.Threads().empty());
    if (device_changes) monitor->OnDeviceContextChanges(true);
    return {life.Items(), life.DatasetContexts()};
  }

  MonitorWorld world_;
};

EventLogReading RecordAt(std::int64_t time, const EventLogQuery& query) {
  EventLogRecord record;
  for (const std::string& path : query.value_paths) {
    record.values.emplace_back();
    if (path == "Event/System/TimeCreated/@SystemTime") {
      record.values.back() = platform::WallTime(std::chrono::seconds(time));
    }
  }
  return {.records = {record}};
}

TEST_F(SystemBiosEventMonitorTest, LogsOncePerBoot) {
  const Records first = Run();
  ASSERT_EQ(first.items.size(), 1u);
  const ItemData facts = {{L"BIOSManufacturer", L"Contoso"},
                          {L"BIOSName", L"C14ET50W (1.20 )"},
                          {L"EmbeddedControllerVersion", L"1.10"},
                          {L"SystemBIOSVersion", L"1.20"},
                          {L"BIOSReleaseDate", L"2025-03-04"}};
  EXPECT_EQ(first.items[0].item_data(), facts) << "what no source tells is left out";
  ASSERT_EQ(first.contexts.size(), 1u);
  EXPECT_EQ(first.contexts[0].item_data(), facts);
  EXPECT_EQ(first.items[0].dataset_context_id(), first.contexts[0].dataset_context_id());

  const Records same_boot = Run();
  EXPECT_EQ(same_boot.items.size() + same_boot.contexts.size(), 0u);
  const Records new_device = Run(true);
  ASSERT_EQ(new_device.items.size(), 1u) << "its initialisation, once";
  EXPECT_EQ(new_device.items[0].dataset_context_id(), new_device.contexts.at(0).dataset_context_id());

  BootAt(Now());
  const Records next_boot = Run();
  ASSERT_EQ(next_boot.items.size(), 1u);
  EXPECT_TRUE(next_boot.contexts.empty()) << "nothing of the firmware changed";
  EXPECT_EQ(next_boot.items[0].dataset_context_id(), new_device.contexts[0].dataset_context_id());

  world_.machine.firmware().Change([](auto& state) {
    state.facts.bios_release = "1.21";
    state.smbios = testing_support::Table().End().Rsmb();
  });
  BootAt(Now());
  const Records new_firmware = Run();
  ASSERT_EQ(new_firmware.items.size(), 1u);
  EXPECT_EQ(new_firmware.items[0].item_data().at(L"SMBIOSVersion"), L"3.2");
  ASSERT_EQ(new_firmware.contexts.size(), 1u);
  EXPECT_EQ(new_firmware.items[0].dataset_context_id(), new_firmware.contexts[0].dataset_context_id());
}

TEST_F(SystemBiosEventMonitorTest, ABootIsToldByItsNameWhereItHasOneWhateverTheClockSays) {
  struct Row {
    const char* what;
    int boot;  ///< Hours from now.
    const char* id;
    std::size_t items;
  };
  for (const Row& row : {
           Row{"the first one", -2, "one", 1},
           Row{"the clock was put forward", 100, "one", 0},
           Row{"the next boot, the clock was put back", -100, "two", 1},
           Row{"without a name its time counts", -100, "", 0},
           Row{"without a name, a later time", 100, "", 1},
       }) {
    SCOPED_TRACE(row.what);
    BootAt(Now() + row.boot * 3600, row.id);
    EXPECT_EQ(Run().items.size(), row.items);
  }
}

TEST_F(SystemBiosEventMonitorTest, BootTimeComesFromTheLogOrElseFromTheMachine) {
  Run();
  const std::int64_t before = Now() - 1000 * 3600;
  constexpr std::int64_t kNow = 0;
  struct Row {
    std::string found;  ///< Part of the query that the log answers with `time`.
    std::int64_t time;  ///< kNow: when the service starts.
    std::optional<std::int64_t> machine;
    EventLogFailure failure;
    std::size_t items;
  };
  for (const Row& row : {
           Row{"EventID=12", before, kNow, EventLogFailure::kNone, 0},
           Row{"EventID=6005", before, kNow, EventLogFailure::kNone, 0},
           Row{"EventID=1074", before, kNow, EventLogFailure::kNone, 0},
           Row{"nothing", before, std::nullopt, EventLogFailure::kNone, 0},
           Row{"nothing", before, before, EventLogFailure::kNotSupported, 0},
           Row{"nothing", before, kNow, EventLogFailure::kNone, 1},
           Row{"nothing", before, kNow, EventLogFailure::kNotSupported, 1},
           Row{"nothing", before, kNow, EventLogFailure::kQuery, 0},
           Row{"EventID=12", kNow, before, EventLogFailure::kNone, 1},
           Row{"EventID=12", before, kNow, EventLogFailure::kRenderXml, 0},
       }) {
    SCOPED_TRACE(row.found);
    const auto resolve = [start = Now()](std::int64_t time) { return time == kNow ? start : time; };
    Log([&](const EventLogQuery& query) {
      EXPECT_EQ(query.channel, "System");
      EXPECT_EQ(query.limit, 1u);
      if (query.xpath.find(row.found) != std::string::npos) {
        EventLogReading reading = RecordAt(resolve(row.time), query);
        reading.failure = row.failure;
        return reading;
      }
      return EventLogReading{.records = {}, .failure = row.failure, .error = 5};
    });
    BootAt(row.machine ? std::optional(resolve(*row.machine)) : std::nullopt);
    EXPECT_EQ(Run().items.size(), row.items);
  }
  EXPECT_EQ(world_.logs.Count(L"the time of the last boot is not known"), 2u);
  EXPECT_TRUE(world_.logs.Has(L"SystemBiosEventMonitor::GetLastbootTime, EvtQuery failed with 5l.\n"));
}

TEST_F(SystemBiosEventMonitorTest, AControllerThatDoesNotTellIsLeftOutAndWhatIsGoneIsAChange) {
  Run();
  world_.machine.firmware().Change([](auto& state) { state.facts.ec_release = "255.0"; });
  const Records records = Run();
  ASSERT_EQ(records.contexts.size(), 1u);
  EXPECT_FALSE(records.contexts[0].item_data().contains(L"EmbeddedControllerVersion"));
}

TEST_F(SystemBiosEventMonitorTest, AMachineThatTellsNothingIsNotDescribed) {
  world_.machine.firmware().Change([](auto& state) { state.facts = {}; });
  const Records records = Run(true, true);
  EXPECT_EQ(records.items.size() + records.contexts.size(), 0u);
  EXPECT_TRUE(world_.logs.Has(L"nothing is logged"));
}

TEST(BiosDateTest, ConvertsWhatIsADateAndLogsWhatIsNot) {
  LogCapture lines;
  Log log;
  utility::InitLog(log, L"SystemBiosEventMonitor.log", 4);
  EXPECT_EQ(ConvertDateFormat(L"01/31/2024", log), L"2024-01-31");
  EXPECT_EQ(ConvertDateFormat(L"12/01/1999", log), L"1999-12-01");
  EXPECT_EQ(ConvertDateFormat(L"", log), L"");
  EXPECT_TRUE(lines.Lines().empty());
  for (const wchar_t* none : {L"03/31/24", L"13/01/2024", L"00/10/2024", L"01/32/2024", L"01/00/2024", L"2024-03-31",
                              L"03/31/2024 ", L"0a/31/2024", L"Not Specified"}) {
    EXPECT_EQ(ConvertDateFormat(none, log), none);
    EXPECT_TRUE(lines.Has(L"\"" + std::wstring(none) + L"\" is no date of the form mm/dd/yyyy"));
  }
}

}  // namespace

}  // namespace TVK
