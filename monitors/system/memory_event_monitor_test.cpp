#include "monitors/system/memory_event_monitor.h"

#include <gtest/gtest.h>

#include "platform/simulated/simulated_firmware.h"
#include "platform/simulated/simulated_memory.h"
#include "testing/monitor_world.h"
#include "testing/smbios_builder.h"

namespace {

using platform::MemoryStatus;
using std::chrono::seconds;

constexpr std::uint64_t kGiB = 1ull << 30;

class MemoryEventMonitorTest : public testing::Test {
 protected:
  MemoryEventMonitorTest() {
    world_.config.SetPolicy(MakePolicy(L"full", {{MemoryEventMonitor::dataset_id, MemoryEventMonitor::dataset_name}}));
    Settings({{L"ReadUsageInterval", L"1d"}});
    Memory(MemoryStatus{40, 16 * kGiB, 9 * kGiB});
  }
  ~MemoryEventMonitorTest() override {
    monitor_.reset();
    EXPECT_TRUE(world_.runtime.Threads().empty());
  }

  /// Ends the monitor that runs, if any, and starts another one.
  void Start() {
    monitor_.reset();
    monitor_.emplace(world_.runtime, std::make_unique<MemoryEventMonitor>(life_->services()));
    world_.runtime.Settle();
  }
  /// Another run of the service on the same records.
  void StartNextLife() {
    monitor_.reset();
    life_.reset();
    life_.emplace(world_);
    Start();
  }
  void Settings(const std::map<std::wstring, std::wstring>& settings) {
    world_.config.SetSettings(MemoryEventMonitor::dataset_name, settings);
  }
  void Memory(std::optional<MemoryStatus> memory) { world_.machine.memory().Set(memory); }
  void Smbios(const testing_support::Bytes& table) { world_.machine.firmware().SetSmbios(table); }
  /// How many changes are reported when the load goes to `percent`.
  std::size_t ChangesAt(std::uint32_t percent) {
    const std::size_t before = life_->Items(L"Memory change").size();
    Memory(MemoryStatus{percent, 16 * kGiB, 16 * kGiB / 100 * (100 - percent)});
    world_.runtime.AdvanceBy(seconds(3));
    return life_->Items(L"Memory change").size() - before;
  }

  MonitorWorld world_;
  std::optional<ServiceLife> life_{std::in_place, world_};
  std::optional<RunningMonitor> monitor_;
};

TEST_F(MemoryEventMonitorTest, ChangesOfFivePointsAreReported) {
  Start();
  for (const auto& [load, reports] : {std::pair(44u, 0u), {45u, 1u}, {40u, 1u}, {36u, 0u}, {100u, 1u}, {0u, 1u}}) {
    EXPECT_EQ(ChangesAt(load), reports) << load;
  }
  const ItemEvent item = life_->Items(L"Memory change").front();
  EXPECT_EQ(item.item_data(), (ItemData{{L"FreePhysicalMemory", L"9011MB"}, {L"VisibleMemory", L"16384MB"}}));
  EXPECT_EQ(item.source(), L"tvk/memory");
  EXPECT_EQ(item.dataset_context_id(), life_->DatasetContexts().back().dataset_context_id());
}

TEST_F(MemoryEventMonitorTest, OnlyAMissingKeyTurnsTheReportOnAgain) {
  Start();
  const auto apply = [&](const std::map<std::wstring, std::wstring>& settings) {
    Settings(settings);
    (*monitor_)->ReadAndUpdateDatasetSettings();
  };
  apply({{L"MemoryChangeEvent", L"enable"}});
  EXPECT_EQ(ChangesAt(50), 1u);
  for (const wchar_t* value : {L"disable", L"Disable", L"enable"}) {
    apply({{L"MemoryChangeEvent", value}});
    EXPECT_EQ(ChangesAt(70), 0u) << "the reference stays at 50 while the report is off";
  }
  apply({});
  EXPECT_EQ(ChangesAt(70), 1u);
}

TEST_F(MemoryEventMonitorTest, AFailedReadingIsLoggedOnceAndKeepsTheReference) {
  Start();
  Memory(std::nullopt);
  Start();
  world_.runtime.AdvanceBy(seconds(10));
  EXPECT_EQ(world_.logs.Count(L"MemoryStatusReportThread GlobalMemoryStatusEx() return error 50!"), 1u);
  EXPECT_EQ(ChangesAt(44), 0u);
  EXPECT_EQ(ChangesAt(45), 1u);
}

TEST_F(MemoryEventMonitorTest, ContextHoldsTheSlotsAsOneText) {
  using namespace testing_support;
  Smbios(Table()
             .Add(MemoryArray())
             .Add(MemoryDevice())
             .Add(MemoryDevice({.handle = 0x1101, .size = 0}))
             .Add(MemoryDevice({.handle = 0x1102, .locator = "\xE4", .length = 0x15}))
             .End()
             .Rsmb());
  Start();
  const ItemData data = life_->DatasetContexts().back().item_data();
  EXPECT_EQ(
      data.at(L"mem_slot_info"),
      L"[{\"DeviceLocator\":\"ChannelA-DIMM0\",\"MemoryClockSpeed\":\"2400MHz\",\"MemoryErrorCorrection\":\"None\","
      L"\"MemorySlotBankLabel\":\"BANK 0\",\"MemorySlotManufacturer\":\"Contoso\",\"MemorySlotSize\":\"16384MB\","
      L"\"MemorySpeed\":\"2667MHz\",\"MemoryType\":\"DDR4\"},"
      L"{\"DeviceLocator\":\"\u00e4\",\"MemoryErrorCorrection\":\"None\",\"MemorySlotBankLabel\":\"BANK 0\","
      L"\"MemorySlotSize\":\"16384MB\",\"MemoryType\":\"DDR4\"}]");
  EXPECT_EQ(data.at(L"TotalPhysicalMemory"), L"32768MB");
  EXPECT_EQ(data.at(L"MaximumPhysicalMemory"), L"32768MB");
}

TEST_F(MemoryEventMonitorTest, WithoutATableTheRestGoesOnAndABrokenOneStartsNothing) {
  Start();
  EXPECT_TRUE(world_.logs.Has(L"MemoryEventMonitor StartMonitor GetMemoryInfo() return fail! err: 5"));
  EXPECT_TRUE(world_.logs.Has(L"(error 50)); no memory slot is described, the rest goes on"));
  EXPECT_EQ(life_->DatasetContexts().back().item_data(), (ItemData{{L"TotalPhysicalMemory", L"16384MB"}}));
  EXPECT_EQ(ChangesAt(60), 1u);
  Smbios({0, 3, 2});
  StartNextLife();
  EXPECT_TRUE(world_.runtime.Threads().empty());
  (*monitor_)->OnDeviceContextChanges(true);
  (*monitor_)->ReadAndUpdateDatasetSettings();
  EXPECT_EQ(life_->DatasetContexts().size() + life_->Items().size(), 0u);
}

TEST_F(MemoryEventMonitorTest, ChangedModulesAreReportedOnceAndOtherContextsAreNot) {
  Start();
  EXPECT_TRUE(life_->Items(L"MemoryEvent context updated").empty()) << "the first description is no change";
  Memory(MemoryStatus{40, 16 * kGiB - (kGiB >> 3) + (kGiB >> 10), 9 * kGiB});
  Start();
  EXPECT_TRUE(life_->Items(L"MemoryEvent context updated").empty()) << "a kernel that keeps 127 MB more is no module";
  EXPECT_EQ(life_->DatasetContexts().back().item_data(), (ItemData{{L"TotalPhysicalMemory", L"16257MB"}}));
  Memory(MemoryStatus{40, 16 * kGiB + (1ull << 20), 9 * kGiB});
  Start();
  ASSERT_EQ(life_->Items(L"MemoryEvent context updated").size(), 1u);
  EXPECT_EQ(life_->Items().back().dataset_context_id(), life_->DatasetContexts().back().dataset_context_id());
  (*monitor_)->OnDeviceContextChanges(true);
  EXPECT_EQ(life_->DatasetContexts().size(), 4u);
  EXPECT_EQ(life_->Items(L"MemoryEvent context updated").size(), 1u);
  EXPECT_EQ(life_->Items(L"DeviceInit").size(), 1u);
}

}  // namespace
