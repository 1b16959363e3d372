// The datasets of drives' health, against drives that are played at the door.
#include <gtest/gtest.h>

#include "client/store/failing_disk.h"
#include "monitors/storage/drive_monitors_world.h"
#include "monitors/storage/pcie_nvme_smart_event_monitor.h"
#include "monitors/storage/sata_smart_event_monitor.h"
#include "monitors/storage/smart_event_monitor.h"
#include "platform/system_event.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using namespace testing_support;       // NOLINT(google-build-using-namespace): what drives answer
using platform::DriveAnswer;
using platform::DriveBus;
using platform::DriveChange;
using platform::DrivePage;
using platform::DriveResult;
using platform::SimulatedDrive;

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
    bool init;  ///< Of that drive.
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
       {Row{"no SMART", no_smart, false,
            L"SmartEventMonitor::LogDevInitEvent: Run DeviceInit Ata doesn't support Smart Feature!"},
        Row{"says so only", mute, true,
            L"/dev/sda: its health is not told: it does not support that, or what it is attached to does not pass it "
            L"on "
            L"(error 0x0)"},
        Row{"damaged", damaged, true, L"/dev/sda: its health is not told: what it told is damaged (error 0x0)"},
        Row{"asleep", asleep, false, L"/dev/sda: its identity is not told: it is asleep, and is not woken (error 0x0)"},
        Row{"no right", forbidden, true,
            L"/dev/sda: its health is not told: this process has no right to ask it (error 0x0)"}}) {
    SCOPED_TRACE(row.what);
    SetDrive(1, row.ssd);
    Start<SmartEventMonitor>(true, true);
    std::vector<std::wstring> inits = {KeyOf(kHddSerial)};
    if (row.init) inits.insert(inits.begin(), KeyOf(kSsdSerial));
    EXPECT_EQ(DrivesOf(L"DeviceInit"), inits);
    for (int day = 0; day < 3; ++day) {
      world_.runtime.Suspend(24h);  // a day without its 86400 ticks
      world_.runtime.AdvanceBy(10s);
    }
    EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay"), std::vector<std::wstring>(3, KeyOf(kHddSerial)));
    EXPECT_EQ(world_.logs.Count(row.said), 1u) << "told once, not each day";
    Forget();
  }
}

TEST_F(DriveMonitorsTest, OfAnNvmeDriveTheSystemsErrorIsTold) {
  for (const auto& [answer, said] :
       {std::pair(DriveAnswer{DriveResult::kFailed, 1117}, L"PCIeNVMeSmartInfo::ReadSMARTInfo: Failed retCode: 1117"),
        {DriveAnswer{DriveResult::kNotSupported}, L"PCIeNVMeSmartInfo::ReadSMARTInfo: Failed retCode: 1168"}}) {
    SimulatedDrive nvme = Nvme();
    nvme.read = [answer = answer](DrivePage page) {
      return page == DrivePage::kNvmeHealth ? answer : DriveAnswer{.bytes = testing_support::Sector(4096)};
    };
    SetDrive(0, nvme);
    Start<PCIeNVMeSmartEventMonitor>();
    EXPECT_TRUE(world_.logs.Has(said));
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

TEST_F(DriveMonitorsTest, ADiskThatIsExchangedBehindItsBridgeIsAnotherOne) {
  const auto bridge_with = [](const char* serial) {
    SimulatedDrive drive = Ata("/dev/sdc", serial, 7200, AtaValues({{5, 100, 100, 0}}));
    drive.listing.bus = DriveBus::kUsb;
    drive.listing.serial_number = "S3CRET-BRIDGE";
    return drive;
  };
  world_.machine.drives().Set({bridge_with(kHddSerial)});
  Start<SmartEventMonitor>();
  world_.runtime.AdvanceBy(24h + 1min);
  world_.machine.drives().Set({bridge_with(kOtherSerial)});
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay"), (std::vector{KeyOf(kHddSerial), KeyOf(kOtherSerial)}));
  // One that does not say who it is may be a third one.
  const SimulatedDrive other = world_.machine.drives().Get()[0];
  world_.machine.drives().Change([](auto& drives) { drives[0].pages[DrivePage::kAtaIdentify].pop_back(); });
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay").size(), 2u);
  world_.machine.drives().Set({other});
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(DrivesOf(L"ReadSMARTPerDay"), (std::vector{KeyOf(kHddSerial), KeyOf(kOtherSerial), KeyOf(kOtherSerial)}));
  EXPECT_EQ(life_->DatasetContexts().size(), 2u);
}

TEST_F(DriveMonitorsTest, NothingIsAskedWithoutConsent) {
  int asked = 0;
  SimulatedDrive nvme = Nvme();
  nvme.read = [&](DrivePage page) -> DriveAnswer {
    ++asked;
    return {.bytes = page == DrivePage::kNvmeHealth ? NvmeHealthPage() : testing_support::Sector(4096)};
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

TEST_F(DriveMonitorsTest, ItsStopCanBeNamedOnceItIsInitialised) {
  life_.emplace(world_);
  for (const auto& [make, name] : {std::pair(&Make<PCIeNVMeSmartEventMonitor>, L"PCIeNVMeEventMonitor_StopEvent"),
                                   {&Make<SATASmartEventMonitor>, L"SATASmartEventMonitor_StopEvent"},
                                   {&Make<SmartEventMonitor>, L"SmartEventMonitor_StopEvent"}}) {
    const auto monitor = make(life_->services());
    monitor->Initialize();
    EXPECT_NE(world_.runtime.OpenNamedEvent(name).event, nullptr) << String::UTF16ToUTF8(name);
    monitor->StopMonitor();
    monitor->StartMonitor({});
    EXPECT_TRUE(life_->DatasetContexts().empty()) << "it was stopped before its start";
  }
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
        Row{"the same", 10, {{5, 10}}, false}, Row{"worse", 9, {{5, 10}}, true},
        Row{"without thresholds", 9, {}, false}, Row{"the same again", 9, {{5, 10}}, false},
        Row{"well", 11, {{5, 10}}, false}, Row{"ill again", 9, {{5, 10}}, true}}) {
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

TEST_F(DriveMonitorsTest, WhatTheStoreRefusesIsSaidInEachOnesWords) {
  FailingDisk disk;
  SimulatedDrive hdd = Hdd();
  hdd.pages[DrivePage::kAtaSmartValues] = AtaValues({{5, 1, 1, 7}});
  SetDrive(2, hdd);
  struct Row {
    std::unique_ptr<EventMonitorBase> (*make)(const MonitorServices&);
    std::vector<const wchar_t*> lines;
  };
  for (const Row& row :
       {Row{Make<SmartEventMonitor>,
            {L"SmartEventMonitor Log Intialize OK!",
             L"SmartEventMonitor::LogDatasetContext: LogDatasetContext bIsNeedNewDatasetContext is true.",
             L"SmartEventMonitor::LogDatasetContext: LogDatasetContext LogDatasetContext() return error: 13",
             L"SmartEventMonitor::CheckThresholdEntry: SmartCheckEntry found ReallocatedSectorCount, existed =",
             L"SmartEventMonitor::CheckThresholdEntry: Model :Ata, Return error: 13",
             L"SmartEventMonitor LogDevInitEvent failed"}},
        Row{Make<SATASmartEventMonitor>,
            {L"SATASmartEventMonitor::Initialize: Log Intialize OK!",
             L"SATASmartEventMonitor::LogDatasetContext: LogDatasetContext bIsNeedNewDatasetContext is true.",
             L"SATASmartEventMonitor::LogDatasetContext: LogDatasetContext LogDatasetContext() return error: 13",
             L"SATASmartEventMonitor::LogSnapshotEvent: Model: Ata, Return error: 13",
             L"SATASmartEventMonitor::LogItemEvent: Model :Ata, Return error: 13",
             L"SATASmartEventMonitor LogDevInitEvent failed"}},
        Row{Make<PCIeNVMeSmartEventMonitor>,
            {L"PCIeNVMeSmartEventMonitor::Initialize: Log Intialize OK!",
             L"PCIeNVMeSmartEventMonitor::LogDatasetContext: bIsNeedNewDatasetContext is true.",
             L"PCIeNVMeSmartEventMonitor::LogDatasetContext: Return error: 13",
             L"PCIeNVMeSmartEventMonitor::LogSnapshotEvent: Model: Nvme, Return error: 13",
             L"PCIeNVMeSmartEventMonitor::LogItemEvent: Model :Nvme, Return error: 13",
             L"PCIeNVMeSmartEventMonitor LogDevInitEvent failed"}}}) {
    Forget();
    life_.emplace(world_);
    life_->manager.first_invocation = true;
    disk.FailAt(1, SQLITE_FULL, true);
    monitor_.emplace(world_.runtime, row.make(life_->services()));
    world_.runtime.Settle();
    world_.runtime.Suspend(24h);
    world_.runtime.AdvanceBy(1min);
    disk.FailAt(0, 0, false);
    for (const wchar_t* line : row.lines)
      EXPECT_TRUE(world_.logs.Has(line)) << String::UTF16ToUTF8(line);
    monitor_.reset();
    life_.reset();
  }
}

}  // namespace
}  // namespace TVK
