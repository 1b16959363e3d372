// The datasets of drives' health and self-tests, against drives that are played at the door.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "client/log/named_event.h"
#include "client/storage/self_testing.h"
#include "client/text/hash_utility.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "monitors/storage/pcie_nvme_smart_event_monitor.h"
#include "monitors/storage/sata_smart_event_monitor.h"
#include "monitors/storage/self_test_event_monitors.h"
#include "monitors/storage/smart_event_monitor.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_power.h"
#include "platform/system_event.h"
#include "testing/drive_sectors.h"
#include "testing/monitor_world.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using namespace testing_support;       // NOLINT(google-build-using-namespace): what drives answer
using platform::DriveAction;
using platform::DriveAnswer;
using platform::DriveBus;
using platform::DriveChange;
using platform::DrivePage;
using platform::DriveResult;
using platform::SimulatedDrive;

constexpr char kNvmeSerial[] = "S3CRET-NVME";
constexpr char kSsdSerial[] = "S3CRET-SSD";
constexpr char kHddSerial[] = "S3CRET-HDD";
constexpr char kOtherSerial[] = "S3CRET-2";

SimulatedDrive Nvme() {
  return {.listing = {.path = "/dev/nvme0n1", .bus = DriveBus::kNvme, .model = "Nvme", .serial_number = kNvmeSerial},
          .pages = {{DrivePage::kNvmeHealth, NvmeHealthPage()}}};
}

SimulatedDrive Ata(const char* path, const char* serial, std::uint16_t rate, const Sector& values) {
  return {
      .listing = {.path = path, .bus = DriveBus::kAta, .model = "Ata", .serial_number = serial, .rotating = rate != 1},
      .pages = {{DrivePage::kAtaIdentify, AtaIdentify({.model = "Ata", .serial = serial, .rotation_rate = rate})},
                {DrivePage::kAtaSmartValues, values},
                {DrivePage::kAtaSmartThresholds, AtaThresholds({{5, 10}, {9, 0}})}}};
}

SimulatedDrive Ssd() {
  return Ata("/dev/sda", kSsdSerial, 1, AtaValues({{5, 100, 99, 3}, {232, 98, 98, 98}}));
}
SimulatedDrive Hdd() {
  return Ata("/dev/sdb", kHddSerial, 7200, AtaValues({{5, 100, 100, 0}, {9, 80, 80, 4711}}));
}

std::wstring KeyOf(const char* serial) {
  return HashUtility::HashSerialNumber(String::UTF8ToUTF16(serial));
}

template <class Monitor>
std::unique_ptr<EventMonitorBase> Make(const MonitorServices& services) {
  return std::make_unique<Monitor>(services);
}

class DriveMonitorsTest : public testing::Test {
 protected:
  DriveMonitorsTest() {
    world_.machine.drives().Set({Nvme(), Ssd(), Hdd()});
    DescribedElsewhere(DatasetRowNamed(L"StorageEvent"));
  }
  ~DriveMonitorsTest() override {
    monitor_.reset();
    for (const std::wstring& text : world_.logs.Lines()) {
      EXPECT_EQ(text.find(L"S3CRET"), text.npos) << String::UTF16ToUTF8(text);
    }
  }

  /// The dataset contexts of another dataset stand.
  void DescribedElsewhere(const DatasetRow& row) {
    described_.push_back(world_.runtime
                             .MakeNamedEvent(DatasetContextEventName(row), platform::EventReset::kManual, true,
                                             platform::EventAccess::kServiceOnly)
                             .event);
  }
  void SetDrive(std::size_t which, SimulatedDrive drive) {
    world_.machine.drives().Change([&](auto& drives) { drives.at(which) = std::move(drive); });
  }
  template <class Monitor>
  void Start(bool consent = true, bool new_device = false) {
    monitor_.reset();
    life_.emplace(world_);
    life_->consent.given = consent;
    life_->manager.first_invocation = new_device;
    monitor_.emplace(world_.runtime, Make<Monitor>(life_->services()));
    world_.runtime.Settle();
  }
  /// Hashed serial numbers of the drives that have the items, in their order.
  std::vector<std::wstring> DrivesOf(const wchar_t* item) {
    std::vector<std::wstring> drives;
    for (const ItemEvent& event : life_->Items(item)) {
      drives.push_back(L"?");
      for (const char* const serial : {kNvmeSerial, kSsdSerial, kHddSerial, kOtherSerial}) {
        DatasetContext context;
        life_->store.GetLastDatasetContextOfDevice(event.dataset_id(), KeyOf(serial), context);
        if (context.dataset_context_id() == event.dataset_context_id()) drives.back() = KeyOf(serial);
      }
    }
    return drives;
  }
  /// The world as it was before anything was recorded.
  void Forget() {
    monitor_.reset();
    life_.reset();
    for (const auto& file : std::filesystem::directory_iterator(world_.folder.path()))
      std::filesystem::remove(file);
    world_.logs.Clear();
  }

  MonitorWorld world_;
  std::vector<std::unique_ptr<platform::Event>> described_;
  std::optional<ServiceLife> life_;
  std::optional<RunningMonitor> monitor_;
};

TEST_F(DriveMonitorsTest, HealthIsToldOnceASessionAndOnceADay) {
  const std::wstring nvme = KeyOf(kNvmeSerial);
  const std::wstring ssd = KeyOf(kSsdSerial);
  const std::wstring hdd = KeyOf(kHddSerial);
  const auto context = [](const wchar_t* model, const std::wstring& key, const wchar_t* bus, const wchar_t* type) {
    ItemData data{{L"Model", model}, {L"SerialNumber", key}, {L"DriveType", type}};
    if (bus[0] != 0) data[L"DriveBusType"] = bus;
    return data;
  };
  struct Row {
    void (DriveMonitorsTest::*start)(bool, bool);
    std::vector<ItemData> contexts;
    std::size_t sessions;
    std::vector<std::wstring> drives;
    const wchar_t* key;
    const wchar_t* value;
    const wchar_t* source;
  };
  for (const Row& row : {Row{&DriveMonitorsTest::Start<PCIeNVMeSmartEventMonitor>,
                             {context(L"Nvme", nvme, L"PCIe-NVMe", L"NVMe SSD")},
                             1,
                             {nvme},
                             L"DataUnitsWritten",
                             L"1002",
                             L"tvk/smartNVMe"},
                         Row{&DriveMonitorsTest::Start<SATASmartEventMonitor>,
                             {context(L"Ata", ssd, L"SATA-SSD", L"SATA SSD")},
                             1,
                             {ssd},
                             L"EnduranceRemaining",
                             L"{ \"raw\": \"98\",\"normalized\": \"98\",\"threshold\": \"\",\"worst\": \"98\"}",
                             L"tvk/smartSATA"},
                         Row{&DriveMonitorsTest::Start<SmartEventMonitor>,
                             {context(L"Ata", ssd, L"", L"SATA SSD"), context(L"Ata", hdd, L"", L"SATA HDD")},
                             0,
                             {ssd, hdd},
                             L"ReallocatedSectorCount",
                             L"{ \"raw\": \"3\",\"normalized\": \"100\",\"threshold\": \"10\",\"worst\": \"99\"}",
                             L"tvk/Smart"}}) {
    SCOPED_TRACE(String::UTF16ToUTF8(row.source));
    (this->*row.start)(true, true);
    std::vector<ItemData> contexts;
    for (const DatasetContext& one : life_->DatasetContexts())
      contexts.push_back(one.item_data());
    EXPECT_EQ(contexts, row.contexts);
    EXPECT_EQ(DrivesOf(L"DeviceInit"), row.drives);
    EXPECT_EQ(life_->Items(L"ReadSMARTPerSession").size(), row.sessions);
    world_.runtime.AdvanceBy(24h - 2s);
    EXPECT_TRUE(life_->Items(L"ReadSMARTPerDay").empty());
    world_.runtime.AdvanceBy(4s);
    EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay"), row.drives);
    const ItemEvent item = life_->Items(L"ReadSMARTPerDay").at(0);
    EXPECT_EQ(item.item_data().at(row.key), row.value);
    EXPECT_EQ(item.source(), row.source);
    world_.runtime.AdvanceBy(12h);
    // Another run counts from the last record, and knows its drives again.
    (this->*row.start)(true, false);
    EXPECT_TRUE(life_->DatasetContexts().empty());
    EXPECT_TRUE(life_->Items(L"DeviceInit").empty());
    world_.runtime.AdvanceBy(12h + 4s);
    EXPECT_EQ(life_->Items(L"ReadSMARTPerDay").size(), row.drives.size());
    monitor_.reset();
  }
}

TEST_F(DriveMonitorsTest, OneDriveThatDoesNotTellKeepsNoOtherOne) {
  struct Row {
    const char* what;
    SimulatedDrive ssd;
    bool init, init_of_the_silent;
    const wchar_t* said;
  };
  SimulatedDrive no_smart = Ssd();
  no_smart.pages[DrivePage::kAtaIdentify][2 * 82] = 0;
  no_smart.pages[DrivePage::kAtaIdentify] = WithChecksum(no_smart.pages[DrivePage::kAtaIdentify]);
  SimulatedDrive mute = Ssd();
  mute.pages.erase(DrivePage::kAtaSmartValues);
  SimulatedDrive damaged = Ssd();
  damaged.pages[DrivePage::kAtaSmartValues][9] ^= 1;
  SimulatedDrive asleep = Ssd();
  asleep.power = platform::DrivePower::kAsleep;
  asleep.read = [](DrivePage) -> DriveAnswer { throw std::logic_error("a drive that sleeps was asked"); };
  SimulatedDrive forbidden = Ssd();
  forbidden.opening = DriveResult::kNoRight;
  for (const Row& row :
       {Row{"no SMART", no_smart, true, false,
            L"SmartEventMonitor::LogDevInitEvent: Run DeviceInit Ata doesn't support Smart Feature!"},
        Row{"says so only", mute, true, true,
            L"/dev/sda: its health is not told: it does not support that, or what it is attached to does not pass it "
            L"on "
            L"(error 0x0)"},
        Row{"damaged", damaged, true, true, L"/dev/sda: its health is not told: what it told is damaged (error 0x0)"},
        Row{"asleep", asleep, true, true,
            L"/dev/sda: its identity is not told: it is asleep, and is not woken (error 0x0)"},
        Row{"no right", forbidden, true, true,
            L"/dev/sda: its health is not told: this process has no right to ask it (error 0x0)"}}) {
    SCOPED_TRACE(row.what);
    SetDrive(1, row.ssd);
    Start<SmartEventMonitor>(true, true);
    for (int day = 0; day < 3; ++day) {
      world_.runtime.Suspend(24h);  // a day without its 86400 ticks
      world_.runtime.AdvanceBy(10s);
    }
    EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay"), std::vector<std::wstring>(3, KeyOf(kHddSerial)));
    EXPECT_EQ(world_.logs.Count(row.said), 1u) << "told once, not each day";
    Forget();
  }
}

TEST_F(DriveMonitorsTest, ADriveThatHangsHoldsUpNobodyAndIsLeftAlone) {
  const auto comes_back = world_.runtime.MakeEvent(platform::EventReset::kManual);
  int asked = 0;
  SimulatedDrive hanging = Ssd();
  hanging.read = [&](DrivePage) -> DriveAnswer {
    ++asked;
    world_.runtime.Wait(*comes_back, platform::kForever);
    return {DriveResult::kFailed};
  };
  SetDrive(1, hanging);
  Start<SmartEventMonitor>(true, false);
  world_.runtime.AdvanceBy(24h + 2min);
  EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay"), std::vector{KeyOf(kHddSerial)});
  EXPECT_EQ(asked, 1) << "until its call has come back";
  comes_back->Set();
  world_.runtime.AdvanceBy(24h);
  EXPECT_GE(asked, 2) << "after a rest it gets another chance";
  comes_back->Reset();
  world_.runtime.AdvanceBy(24h - 2min);
  // In the middle of a question that never ends.
  monitor_.reset();
  comes_back->Set();
  world_.runtime.Settle();
}

TEST_F(DriveMonitorsTest, DrivesComeAndGo) {
  world_.machine.drives().Set({Nvme()});
  Start<PCIeNVMeSmartEventMonitor>();
  SimulatedDrive other = Nvme();
  other.listing.path = "/dev/nvme1n1";
  other.listing.serial_number = kOtherSerial;
  SimulatedDrive unnamed = Nvme();
  unnamed.listing.path = "/dev/nvme2n1";
  unnamed.listing.serial_number = "";
  SimulatedDrive second_namespace = Nvme();
  second_namespace.listing.path = "/dev/nvme0n2";
  world_.machine.drives().Set({Nvme(), second_namespace, other, unnamed});
  for (int notice = 0; notice < 3; ++notice)
    (*monitor_)->OnSystemEvent(DriveChange::kAttached);
  world_.runtime.AdvanceBy(5s);
  ASSERT_EQ(life_->DatasetContexts().size(), 2u) << "each drive once, and none that cannot be told apart";
  EXPECT_EQ(life_->DatasetContexts()[1].item_data().at(L"SerialNumber"), KeyOf(kOtherSerial));
  EXPECT_EQ(world_.logs.Count(
                L"/dev/nvme2n1 tells no serial number, or another drive's, and cannot be told apart; it is left out"),
            1u);
  world_.machine.drives().Set({other});
  (*monitor_)->OnSystemEvent(DriveChange::kDetached);
  world_.runtime.AdvanceBy(24h + 1min);
  EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay"), std::vector{KeyOf(kOtherSerial)});
}

TEST_F(DriveMonitorsTest, NothingIsAskedWithoutConsent) {
  int asked = 0;
  SimulatedDrive nvme = Nvme();
  nvme.read = [&](DrivePage page) -> DriveAnswer {
    ++asked;
    return {.bytes = page == DrivePage::kNvmeHealth ? NvmeHealthPage() : Sector()};
  };
  SetDrive(0, nvme);
  Start<PCIeNVMeSmartEventMonitor>(false, true);
  (*monitor_)->OnSystemEvent(DriveChange::kAttached);
  world_.runtime.AdvanceBy(24h + 1min);
  EXPECT_EQ(life_->Items().size() + life_->DatasetContexts().size(), 0u);
  EXPECT_EQ(asked, 0);
  life_->consent.given = true;
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(life_->DatasetContexts().size(), 1u);
  EXPECT_EQ(life_->Items(L"ReadSMARTPerDay").size(), 1u);
  EXPECT_EQ(life_->Items(L"DeviceInit").size(), 1u);
}

TEST_F(DriveMonitorsTest, TheStartWaitsAMinuteForTheStorageDataset) {
  described_.front()->Reset();
  Start<PCIeNVMeSmartEventMonitor>();
  world_.runtime.AdvanceBy(59s);
  EXPECT_TRUE(life_->DatasetContexts().empty());
  world_.runtime.AdvanceBy(2s);
  EXPECT_EQ(life_->Items(L"ReadSMARTPerSession").size(), 1u);
  EXPECT_TRUE(world_.logs.Has(L"PCIeNVMeSmartEventMonitor::StartMonitor: _bRequestStop=0, foundStoreContextId=0"));
  Start<PCIeNVMeSmartEventMonitor>();
  monitor_->Stop();  // in the waiting
  EXPECT_TRUE(world_.logs.Has(L"PCIeNVMeSmartEventMonitor::StartMonitor: _bRequestStop=1, foundStoreContextId=0"));
  EXPECT_TRUE(life_->Items().empty());
}

TEST_F(DriveMonitorsTest, AFailingAttributeIsReportedOnce) {
  const auto set = [&](std::uint8_t value, std::vector<ThresholdSpec> thresholds) {
    SimulatedDrive hdd = Hdd();
    hdd.pages[DrivePage::kAtaSmartValues] = AtaValues({{9, 0, 0, 1}, {5, value, value, 7}, {197, value, value, 8}});
    hdd.pages[DrivePage::kAtaSmartThresholds] = AtaThresholds(thresholds);
    SetDrive(2, hdd);
  };
  struct Row {
    const char* what;
    std::uint8_t value;
    std::vector<ThresholdSpec> thresholds;
    bool reported;
  };
  for (const Row& row :
       {Row{"above", 11, {{9, 20}, {5, 10}}, false}, Row{"unknown", 1, {{9, 20}}, false},
        Row{"value 0", 0, {{9, 20}, {5, 10}}, false}, Row{"at the threshold", 10, {{9, 20}, {5, 10}, {197, 10}}, true},
        Row{"the same", 10, {{5, 10}}, false}, Row{"worse", 9, {{5, 10}}, true}}) {
    SCOPED_TRACE(row.what);
    set(row.value, row.thresholds);
    Start<SmartEventMonitor>();
    const auto findings = life_->Items(L"ThresholdExceedsCondition");
    ASSERT_EQ(findings.size(), row.reported ? 1u : 0u);
    if (!row.reported) continue;
    EXPECT_EQ(findings[0].item_id(), L"7D09F865-18BA-4CE2-A41E-F35ED9B965BA");
    EXPECT_EQ(findings[0].item_data().size(), 1u);
    EXPECT_NE(findings[0].item_data().at(L"ReallocatedSectorCount").find(L"\"raw\": \"7\""), std::wstring::npos);
  }
  set(8, {{5, 10}});
  for (int day = 0; day < 2; ++day) {
    world_.runtime.Suspend(24h);
    world_.runtime.AdvanceBy(1min);
  }
  EXPECT_EQ(life_->Items(L"ThresholdExceedsCondition").size(), 2u) << "with the day's record, once";
}

/// A drive whose short self-test takes a while, by the world's clock.
struct TestedDrive {
  std::vector<DriveAction> actions = {};
  std::uint8_t result = 0;  // What the test comes to.
  bool runs = false;        // One that somebody else began.
  std::chrono::seconds takes{100};
  bool logs = true;
};

class SelfTestMonitorsTest : public DriveMonitorsTest {
 protected:
  SelfTestMonitorsTest() {
    DescribedElsewhere(DatasetRowNamed(L"PCIe_NVMe_SMARTEvent"));
    DescribedElsewhere(DatasetRowNamed(L"SATA_SSD_SMARTEvent"));
    world_.config.SetPolicy(
        MakePolicy(L"full", {{SATASelfTestEventMonitor::dataset_id, L"SATA_SSD_SelfTestResult"},
                             {PCIeNVMeSelfTestEventMonitor::dataset_id, L"PCIe_NVMe_SelfTestResult"}}));
    SimulatedDrive ssd = Ssd();
    ssd.act = [this](DriveAction action) { return Act(action); };
    ssd.read = [this, pages = ssd.pages](DrivePage page) -> DriveAnswer {
      if (page == DrivePage::kAtaSelfTestLog) return {.bytes = Log()};
      if (page != DrivePage::kAtaSmartValues) {
        const auto found = pages.find(page);
        return found == pages.end() ? DriveAnswer{DriveResult::kNotSupported} : DriveAnswer{.bytes = found->second};
      }
      const auto status = static_cast<std::uint8_t>(Running() ? 0xF3 : tested_.result << 4);
      return {.bytes = AtaValues({}, status)};
    };
    SetDrive(1, ssd);
    SimulatedDrive nvme = Nvme();
    nvme.act = ssd.act;
    nvme.read = [this](DrivePage page) -> DriveAnswer {
      Sector data(page == DrivePage::kNvmeController ? 4096 : 564);
      if (page == DrivePage::kNvmeController) {
        PutLittleEndian(data, 256, 0x10, 2);
      } else {
        data[0] = Running();
        data[4] = static_cast<std::uint8_t>(0x10 | tested_.result);
        data[8] = static_cast<std::uint8_t>(tested_.actions.size());  // the hour of its end
        std::fill(data.begin() + 32, data.end(), 0xFF);
      }
      return {.bytes = std::move(data)};
    };
    SetDrive(0, nvme);
  }
  /// ATA's log: an entry for each test.
  Sector Log() const {
    Sector sector(512);
    const std::size_t tests = tested_.logs ? tested_.actions.size() : 0;
    sector[508] = static_cast<std::uint8_t>(tests);
    if (tests != 0) sector[2 + (tests - 1) * 24] = 1;
    if (tests != 0) sector[3 + (tests - 1) * 24] = static_cast<std::uint8_t>(tested_.result << 4);
    return WithChecksum(std::move(sector));
  }
  bool Running() const {
    return tested_.runs || (started_ && world_.runtime.clock().Steady() - *started_ < tested_.takes);
  }
  DriveAnswer Act(DriveAction action) {
    tested_.actions.push_back(action);
    if (action == DriveAction::kAtaStartShortSelfTest || action == DriveAction::kNvmeStartShortSelfTest) {
      started_ = world_.runtime.clock().Steady();
    } else {
      started_.reset();
    }
    return {};
  }
  void SetInterval(const std::wstring& name, const wchar_t* interval) {
    world_.config.SetSettings(name, interval[0] == 0
                                        ? std::map<std::wstring, std::wstring>()
                                        : std::map<std::wstring, std::wstring>{{L"RunSelfTestInterval", interval}});
  }
  std::vector<std::wstring> Results() const {
    std::vector<std::wstring> results;
    for (const ItemEvent& item : life_->Items(L"ReadSelfTestResult")) {
      EXPECT_EQ(item.item_data().at(L"TestType"), L"short");
      EXPECT_EQ(item.item_id(), L"3BEF1451-12F5-40AF-A717-5636223437C6");
      results.push_back(item.item_data().at(L"TestResult"));
    }
    return results;
  }

  TestedDrive tested_;
  std::optional<platform::SteadyTime> started_;
};

TEST_F(SelfTestMonitorsTest, IntervalsBelowADayAreRefusedOrRaised) {
  struct Row {
    bool nvme;
    const wchar_t* interval;
    std::size_t in_two_days;
    const wchar_t* said;
  };
  for (const Row& row :
       {Row{true, L"1d", 3,
            L"PCIeNVMeSelfTestEventMonitor::UpdateThrottleParameters: _run_self_test_interval = 86400000, "
            L"bRunSelfTestIntervalChanged = 1"},
        Row{true, L"24h", 3, L""}, Row{true, L"2d", 2, L""},
        Row{true, L"3600000ms", 0,
            L"PCIeNVMeSelfTestEventMonitor::ReadAndUpdateDatasetSettings: Invalid DatasetSettings RunSelfTestInterval "
            L"= 3600000"},
        Row{true, L"", 0, L""}, Row{true, L"soon", 0, L""}, Row{false, L"1d", 3, L""}, Row{false, L"2d", 2, L""},
        Row{false, L"1h", 3,
            L"SATASelfTestEventMonitor::UpdateThrottleParameters Set RunSelfTestInterval to minimum: 1h"},
        Row{false, L"0d", 3, L"Set RunSelfTestInterval to minimum: 1h"}, Row{false, L"60d", 0, L""},
        Row{false, L"", 0, L""}}) {
    SCOPED_TRACE(testing::Message() << row.nvme << " " << String::UTF16ToUTF8(row.interval));
    Forget();
    tested_ = {};
    SetInterval(row.nvme ? L"PCIe_NVMe_SelfTestResult" : L"SATA_SSD_SelfTestResult", row.interval);
    row.nvme ? Start<PCIeNVMeSelfTestEventMonitor>() : Start<SATASelfTestEventMonitor>();
    world_.runtime.AdvanceBy(48h + 10min);
    EXPECT_EQ(Results(), std::vector<std::wstring>(row.in_two_days, L"Completed without error"));
    EXPECT_EQ(tested_.actions, std::vector(row.in_two_days, row.nvme ? DriveAction::kNvmeStartShortSelfTest
                                                                     : DriveAction::kAtaStartShortSelfTest));
    EXPECT_TRUE(world_.logs.Has(row.said));
  }
}

TEST_F(SelfTestMonitorsTest, EachTestIsFollowedToItsEnd) {
  struct Row {
    const char* what;
    TestedDrive drive;
    std::vector<std::wstring> results;
    std::size_t actions;
    const wchar_t* said;
  };
  for (const Row& row : {Row{"fails", {.result = 7}, {L"Completed, read element failed"}, 1, L""},
                         Row{"ends at once", {.takes = 0s}, {L"Completed without error"}, 1, L""},
                         Row{"is dropped on the way",
                             {.takes = 0s, .logs = false},
                             {},
                             1,
                             L"Ata: the drive took the command, and shows no test"},
                         Row{"never ends", {.takes = 100h}, {L"Aborted, not completed in time"}, 2, L""},
                         Row{"somebody else's",
                             {.runs = true},
                             {},
                             0,
                             L"there is no result of a self-test of Ata: the drive runs one already"}}) {
    SCOPED_TRACE(row.what);
    Forget();
    tested_ = row.drive;
    started_.reset();
    SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
    Start<SATASelfTestEventMonitor>();
    const std::uint64_t before = world_.runtime.WakeUps();
    world_.runtime.AdvanceBy(15min);
    EXPECT_LT(world_.runtime.WakeUps() - before, 150u) << "looked at some twice a minute at most";
    EXPECT_EQ(Results(), row.results);
    EXPECT_EQ(tested_.actions.size(), row.actions);
    EXPECT_TRUE(world_.logs.Has(row.said));
  }
}

TEST_F(SelfTestMonitorsTest, AStopAbortsATest) {
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(5s);
  monitor_->Stop();
  EXPECT_EQ(tested_.actions, (std::vector{DriveAction::kAtaStartShortSelfTest, DriveAction::kAtaAbortSelfTest}));
  EXPECT_TRUE(Results().empty());
}

TEST_F(SelfTestMonitorsTest, NoTestOnALowBattery) {
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  world_.machine.power().Set({platform::PowerSource::kBattery, 32});
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(10min);
  EXPECT_TRUE(tested_.actions.empty());
  world_.machine.power().Set({platform::PowerSource::kBattery, 33});
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(Results().size(), 1u);
}

TEST_F(SelfTestMonitorsTest, ContextsNameThoseOfTheOtherDatasets) {
  Start<SATASmartEventMonitor>();
  const std::wstring smart = life_->DatasetContexts().at(0).dataset_context_id();
  DatasetContext storage;
  storage.set_dataset_context_id(L"STORAGE-CONTEXT");
  storage.set_dataset_id(std::wstring(DatasetRowNamed(L"StorageEvent").id));
  storage.set_device_context_id(life_->manager.get_device_context_id());
  ASSERT_EQ(life_->store.LogDatasetContext(storage, KeyOf(kSsdSerial)), 0);
  monitor_.reset();
  described_[2]->Set();  // which the stop took back
  Start<SATASelfTestEventMonitor>(true, true);
  EXPECT_EQ(life_->DatasetContexts().at(0).item_data(),
            (ItemData{{L"Model", L"Ata"},
                      {L"SerialNumber", KeyOf(kSsdSerial)},
                      {L"DriveBusType", L"SATA-SSD"},
                      {L"DriveType", L"SATA SSD"},
                      {L"SATA_SSD_SMARTEvent_dataset_context_id", smart},
                      {L"storage_dataset_context_id", L"STORAGE-CONTEXT"}}));
  EXPECT_TRUE(life_->Items().empty()) << "no device initialisation";
}

TEST_F(SelfTestMonitorsTest, WithoutTheContextsOfTheOtherDatasetsNothingIsTested) {
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  for (const std::size_t missing : {0, 2}) {
    described_[missing]->Reset();
    Start<SATASelfTestEventMonitor>();
    world_.runtime.AdvanceBy(48h);
    EXPECT_TRUE(tested_.actions.empty());
    EXPECT_TRUE(life_->DatasetContexts().empty());
    EXPECT_TRUE(world_.logs.Has(
        L"SATASelfTestEventMonitor::StartMonitor: Service Stop/smart event datasetcontext not logged."));
    described_[missing]->Set();
    world_.logs.Clear();
  }
}

}  // namespace
}  // namespace TVK
