#include "monitors/storage/store_event_monitor.h"

#include <gtest/gtest.h>

#include <atomic>

#include "client/text/hash_utility.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_volumes.h"
#include "platform/system_event.h"
#include "testing/drive_sectors.h"
#include "testing/monitor_world.h"

namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using platform::DriveBus;
using platform::Volume;
using platform::VolumeRole;
using platform::VolumeSpace;
using Texts = std::vector<std::wstring>;

constexpr std::uint64_t kGiB = 1ull << 30;

const Volume kSystem{.id = "SECRET-ID-1",
                     .role = VolumeRole::kSystem,
                     .file_system = "ext4",
                     .space = VolumeSpace{1000, 500},
                     .encrypted = true,
                     .errors = 0};
const Volume kStick{
    .id = "SECRET-ID-2", .role = VolumeRole::kRemovable, .file_system = "vfat", .space = VolumeSpace{2000, 1}};

class StoreEventMonitorTest : public testing::Test {
 protected:
  StoreEventMonitorTest() {
    world_.config.SetPolicy(MakePolicy(L"full", {{StoreEventMonitor::dataset_id, StoreEventMonitor::dataset_name}}));
    world_.config.SetSettings(StoreEventMonitor::dataset_name, {{L"ReadUsageInterval", L"1h"}});
    world_.machine.drives().Set({});
    world_.machine.volumes().Set({kSystem});
  }
  ~StoreEventMonitorTest() override {
    monitor_.reset();
    EXPECT_TRUE(world_.runtime.Threads().empty());
  }

  /// Another run of the service on the same records.
  void Start(bool scope_is_none = false) {
    monitor_.reset();
    life_.emplace(world_);
    life_->consent.scope = scope_is_none ? L"none" : nullptr;
    monitor_.emplace(world_.runtime, std::make_unique<StoreEventMonitor>(life_->services()));
    world_.runtime.Settle();
  }
  static platform::SimulatedDrive Drive(const char* model, DriveBus bus, const char* serial_number = "SECRET-1") {
    return {.listing = {.path = std::string("/dev/") + model,
                        .bus = bus,
                        .model = model,
                        .firmware_version = "1.0",
                        .serial_number = serial_number,
                        .bytes = 4096,
                        .rotating = false},
            .pages = {{platform::DrivePage::kNvmeController, std::vector<std::uint8_t>(4096)}}};
  }
  /// The values of `key` in the contexts of this life, in their order.
  Texts Described(const std::wstring& key) const {
    Texts values;
    for (const DatasetContext& context : life_->DatasetContexts()) {
      const ItemData& data = context.item_data();
      values.push_back(data.contains(key) ? data.at(key) : L"");
    }
    return values;
  }
  Texts Values(const std::wstring& item, const std::wstring& key) const {
    Texts values;
    for (const ItemEvent& event : life_->Items(item))
      values.push_back(event.item_data().at(key));
    return values;
  }
  void ChangeVolume(void (*change)(Volume&, std::uint64_t), std::uint64_t value) {
    world_.machine.volumes().Change([&](auto& volumes) { change(volumes.front(), value); });
  }

  MonitorWorld world_;
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_F(StoreEventMonitorTest, DescribesDrivesAndVolumesWithoutTheirIds) {
  world_.machine.drives().Set({Drive("Contoso", DriveBus::kNvme),
                               {.listing = {.path = "/dev/sdb", .bus = DriveBus::kUsb, .model = "UnKnown"}},
                               {.listing = {.path = "/dev/sdc", .bus = DriveBus::kUsb, .model = "UnKnown"}}});
  world_.machine.volumes().Set({kSystem, {.id = "SECRET-ID-1", .file_system = "xfs"}});
  Start();
  const std::vector<DatasetContext> contexts = life_->DatasetContexts();
  ASSERT_EQ(contexts.size(), 5u) << "drives without a serial number and a copied file system are not one";
  const std::wstring serial_number = TVK::HashUtility::HashSerialNumber(L"SECRET-1");
  EXPECT_EQ(contexts[0].item_data(), (ItemData{{L"Kind", L"drive"},
                                               {L"Model", L"Contoso"},
                                               {L"SerialNumber", serial_number},
                                               {L"FirmwareVersion", L"1.0"},
                                               {L"DriveType", L"NVMe SSD"},
                                               {L"Removable", L"false"},
                                               {L"Size", L"4096"}}));
  EXPECT_EQ(contexts[1].item_data(), (ItemData{{L"Kind", L"drive"}, {L"DriveType", L"USB"}, {L"Removable", L"true"}}));
  EXPECT_EQ(contexts[1].item_data(), contexts[2].item_data());
  const std::wstring id = contexts[3].item_data().at(L"VolumeId");
  EXPECT_EQ(id.size(), 64u);
  EXPECT_EQ(contexts[3].item_data(), (ItemData{{L"Kind", L"volume"},
                                               {L"VolumeId", id},
                                               {L"VolumeRole", L"system"},
                                               {L"FileSystem", L"ext4"},
                                               {L"Size", L"1000"},
                                               {L"Encrypted", L"true"}}));
  EXPECT_EQ(
      contexts[4].item_data(),
      (ItemData{{L"Kind", L"volume"}, {L"VolumeId", id + L" 2"}, {L"VolumeRole", L"data"}, {L"FileSystem", L"xfs"}}));
  EXPECT_EQ(contexts[3].source() + L' ' + contexts[3].dataset_type(), L"tvk/storage device-activity");
  EXPECT_FALSE(world_.logs.Has(L"SECRET"));
  DatasetContext of_drive;
  EXPECT_EQ(life_->store.GetLastDatasetContextOfDevice(StoreEventMonitor::dataset_id, serial_number, of_drive), 0);

  world_.runtime.AdvanceBy(1h);
  const std::vector<ItemEvent> items = life_->Items(L"ReadVolumePerInterval");
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0].item_data(),
            (ItemData{{L"Size", L"1000"}, {L"FreeSpace", L"500"}, {L"ReadOnly", L"false"}, {L"Encrypted", L"true"}}));
  EXPECT_EQ(items[0].dataset_context_id(), contexts[3].dataset_context_id());
  EXPECT_EQ(items[1].item_data(), (ItemData{{L"ReadOnly", L"false"}}));
  EXPECT_EQ(items[1].dataset_context_id(), contexts[4].dataset_context_id());
  EXPECT_EQ(life_->DatasetContexts().size(), 5u) << "nothing changed";
  Start();
  EXPECT_TRUE(life_->DatasetContexts().empty()) << "nor over a restart";
  (*monitor_)->RestartMonitor();
  EXPECT_EQ(life_->DatasetContexts().size(), 5u) << "the scope is another one";
}

TEST_F(StoreEventMonitorTest, AMachineWithoutDrivesAndVolumesIsDescribedToo) {
  world_.machine.volumes().Set({});
  Start();
  const auto event = world_.runtime
                         .MakeNamedEvent(L"StorageEvent_LogDatasetContext", platform::EventReset::kManual, false,
                                         platform::EventAccess::kServiceOnly)
                         .event;
  EXPECT_EQ(world_.runtime.Wait(*event, 0ms), 0u) << "nobody is to wait for it";
  (*monitor_)->RestartMonitor();
  EXPECT_TRUE(life_->DatasetContexts().empty());
}

TEST_F(StoreEventMonitorTest, LowSpaceIsToldOnceUntilThereIsEnough) {
  struct Step {
    std::uint64_t bytes;
    std::uint64_t free_bytes;
    const wchar_t* told;
    bool restart = false;
  };
  for (const Step& step : std::initializer_list<Step>{{1000, 100, L""},
                                                      {1000, 99, L"true"},
                                                      {1000, 1, L""},
                                                      {1000, 1, L"", true},
                                                      {1000, 149, L""},
                                                      {1000, 150, L"false"},
                                                      {1000, 100, L"", true},
                                                      {1000 * kGiB, 10 * kGiB, L""},
                                                      {1000 * kGiB, 10 * kGiB - 1, L"true"},
                                                      {1000 * kGiB, 15 * kGiB - 1, L""},
                                                      {1000 * kGiB, 15 * kGiB, L"false", true}}) {
    world_.machine.volumes().Change([&](auto& volumes) {
      volumes.front().space = VolumeSpace{step.bytes, step.free_bytes};
    });
    if (step.restart || !life_) Start();
    const std::size_t before = step.restart ? 0 : life_->Items(L"FreeSpaceLow").size();
    world_.runtime.AdvanceBy(1h);
    Texts told = Values(L"FreeSpaceLow", L"Low");
    told.erase(told.begin(), told.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(told, *step.told == 0 ? Texts() : Texts{step.told}) << step.free_bytes << " of " << step.bytes;
  }
  EXPECT_EQ(life_->Items(L"FreeSpaceLow").back().item_data(), (ItemData{{L"Size", std::to_wstring(1000 * kGiB)},
                                                                        {L"FreeSpace", std::to_wstring(15 * kGiB)},
                                                                        {L"Low", L"false"}}));
}

TEST_F(StoreEventMonitorTest, OnlyWhatPeopleWriteToIsLow) {
  Volume read_only = kSystem;
  read_only.read_only = true;
  read_only.space = VolumeSpace{1000, 0};
  world_.machine.volumes().Set({read_only, kStick});
  Start();
  world_.runtime.AdvanceBy(1h);
  EXPECT_TRUE(life_->Items(L"FreeSpaceLow").empty());
  EXPECT_EQ(Values(L"ReadVolumePerInterval", L"ReadOnly"), (Texts{L"true", L"false"}));
}

TEST_F(StoreEventMonitorTest, AnErrorCountIsToldWhenItIsAnother) {
  const auto set_errors = [](Volume& volume, std::uint64_t count) { volume.errors = count; };
  Texts told;
  for (const std::uint64_t count : {0, 3, 3, 5, 0, 0, 2}) {
    ChangeVolume(set_errors, count);
    Start();  // looks at once
    world_.runtime.AdvanceBy(1h);
    const Texts now = Values(L"FileSystemError", L"FileSystemErrors");
    told.insert(told.end(), now.begin(), now.end());
  }
  EXPECT_EQ(told, (Texts{L"3", L"5", L"0", L"2"}));
}

TEST_F(StoreEventMonitorTest, NothingTellsOfUseUnderTheScopeNone) {
  world_.machine.drives().Set({Drive("Built-in", DriveBus::kAta), Drive("Usb", DriveBus::kUsb, "SECRET-2"),
                               Drive("Card", DriveBus::kCard, "SECRET-3")});
  Volume stick = kStick;
  stick.errors = 7;
  Volume low = kSystem;
  low.space = VolumeSpace{1000, 1};
  low.errors = 1;
  world_.machine.volumes().Set({low, stick});
  Start(true);
  world_.runtime.AdvanceBy(2h);
  EXPECT_EQ(Described(L"Model"), (Texts{L"Built-in", L""}));
  EXPECT_EQ(Described(L"VolumeRole"), (Texts{L"", L"system"}));
  EXPECT_TRUE(life_->Items(L"ReadVolumePerInterval").empty());
  EXPECT_EQ(life_->Items(L"FreeSpaceLow").size(), 1u);
  EXPECT_EQ(Values(L"FileSystemError", L"FileSystemErrors"), (Texts{L"1"}));

  life_->consent.scope = nullptr;
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(Described(L"Model"), (Texts{L"Built-in", L"", L"Usb", L"Card", L""}));
  EXPECT_EQ(Values(L"ReadVolumePerInterval", L"FreeSpace"), (Texts{L"1", L"1"}));
  EXPECT_EQ(Values(L"FileSystemError", L"FileSystemErrors"), (Texts{L"1", L"7"}));

  const std::size_t written = life_->Items().size();
  life_->consent.scope = L"none";
  stick.errors = 8;
  world_.machine.volumes().Set({low, stick});
  (*monitor_)->OnDeviceContextChanges(true);
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(Described(L"VolumeRole").back(), L"system");
  EXPECT_EQ(life_->Items().size(), written + 2) << "the device-initialisation of the two that are built in";
}

TEST_F(StoreEventMonitorTest, ADriveThatComesIsDescribedOnceItHasSettled) {
  Start();
  const auto tell = [&](platform::DriveChange change, std::vector<platform::SimulatedDrive> drives) {
    world_.machine.drives().Set(std::move(drives));
    (*monitor_)->OnSystemEvent(change);
  };
  (*monitor_)->OnSystemEvent(platform::PowerSource::kBattery);
  const std::size_t threads = world_.runtime.Threads().size();
  tell(platform::DriveChange::kAttached, {Drive("First", DriveBus::kUsb)});
  EXPECT_EQ(world_.runtime.Threads().size(), threads + 1) << "and none for another event";
  world_.runtime.AdvanceBy(2s);
  world_.machine.volumes().Set({kSystem, kStick});
  tell(platform::DriveChange::kAttached, {Drive("First", DriveBus::kUsb), Drive("Second", DriveBus::kUsb, "SECRET-2")});
  world_.runtime.AdvanceBy(2s);
  EXPECT_EQ(life_->DatasetContexts().size(), 1u);
  world_.runtime.AdvanceBy(1s);
  EXPECT_EQ(Described(L"Model"), (Texts{L"", L"First", L"Second", L""}));
  EXPECT_EQ(Described(L"VolumeRole").back(), L"removable");
  tell(platform::DriveChange::kDetached, {});
  world_.machine.volumes().Set({kSystem});
  world_.runtime.AdvanceBy(3s);
  tell(platform::DriveChange::kAttached, {Drive("First", DriveBus::kUsb)});
  world_.machine.volumes().Set({kSystem, kStick});
  world_.runtime.AdvanceBy(3s);
  EXPECT_EQ(life_->DatasetContexts().size(), 4u) << "it is known";
  EXPECT_EQ(world_.runtime.Threads().size(), threads);
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(life_->Items(L"ReadVolumePerInterval").size(), 2u);

  world_.runtime.RefuseThreads(true);
  tell(platform::DriveChange::kAttached, {Drive("Late", DriveBus::kUsb, "SECRET-LATE")});
  world_.runtime.RefuseThreads(false);
  (*monitor_)->ReadAndUpdateDatasetSettings();
  world_.runtime.AdvanceBy(3s);
  EXPECT_EQ(Described(L"Model").back(), L"Late") << "as the manager asks for what the system refused";
  tell(platform::DriveChange::kAttached, {Drive("Third", DriveBus::kUsb, "SECRET-3")});
  (*monitor_)->StopMonitor();
  tell(platform::DriveChange::kAttached, {Drive("Fourth", DriveBus::kUsb, "SECRET-4")});
  world_.runtime.AdvanceBy(10s);
  EXPECT_EQ(life_->DatasetContexts().size(), 5u);
}

TEST_F(StoreEventMonitorTest, ADriveThatSleepsIsNamedOnceItTellsItsOwnNumber) {
  platform::SimulatedDrive drive = Drive("Bridge", DriveBus::kUsb, "SECRET-BRIDGE");
  drive.power = platform::DrivePower::kAsleep;
  drive.pages = {{platform::DrivePage::kAtaIdentify, testing_support::AtaIdentify({.serial = "SECRET-OWN"})}};
  world_.machine.drives().Set({drive});
  Start();
  world_.runtime.AdvanceBy(2h);
  EXPECT_EQ(Described(L"SerialNumber"), (Texts{L"", L""})) << "the other datasets would have another one";
  drive.power = platform::DrivePower::kAwake;
  world_.machine.drives().Set({drive});
  world_.runtime.AdvanceBy(2h);
  EXPECT_EQ(Described(L"SerialNumber"), (Texts{L"", L"", TVK::HashUtility::HashSerialNumber(L"SECRET-OWN")}));
}

TEST_F(StoreEventMonitorTest, AVolumeThatHangsHoldsUpNeitherRecordsNorStop) {
  const auto released = world_.runtime.MakeEvent(platform::EventReset::kManual);
  std::atomic<bool> hangs = true;
  world_.machine.volumes().while_listing = [&] {
    if (hangs) world_.runtime.Wait(*released, platform::kForever);
  };
  world_.machine.drives().Set({Drive("Contoso", DriveBus::kNvme)});
  Start();
  world_.runtime.AdvanceBy(2min);
  EXPECT_EQ(Described(L"Model"), (Texts{L"Contoso"})) << "who waits for this hears of the drives";
  EXPECT_TRUE(world_.logs.Has(L"the system does not tell of its volumes in time"));
  hangs = false;
  released->Set();
  world_.runtime.AdvanceBy(2h);
  EXPECT_EQ(Described(L"VolumeRole"), (Texts{L"", L"system"}));
  EXPECT_FALSE(life_->Items(L"ReadVolumePerInterval").empty());
  released->Reset();
  hangs = true;
  world_.runtime.AdvanceBy(1h);
  monitor_.reset();
  released->Set();
  world_.runtime.Settle();
}

TEST_F(StoreEventMonitorTest, AVolumeThatComesOrGrowsIsDescribedWithTheNextReport) {
  Start();
  world_.machine.volumes().Set({kSystem, kStick});
  world_.runtime.AdvanceBy(59min);
  EXPECT_EQ(life_->DatasetContexts().size(), 1u);
  world_.runtime.AdvanceBy(1min);
  EXPECT_EQ(Described(L"Size"), (Texts{L"1000", L"2000"}));
  EXPECT_EQ(life_->Items(L"ReadVolumePerInterval").size(), 2u);
  ChangeVolume([](Volume& volume, std::uint64_t bytes) { volume.space->bytes = bytes; }, 1500);
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(Described(L"Size"), (Texts{L"1000", L"2000", L"1500"}));
  EXPECT_FALSE(world_.logs.Has(L"has no dataset context"));
}

}  // namespace
