// The datasets of drives' self-tests, against drives that test themselves at the door.
#include <gtest/gtest.h>

#include <algorithm>

#include "monitors/storage/drive_monitors_world.h"
#include "monitors/storage/sata_smart_event_monitor.h"
#include "monitors/storage/self_test_event_monitors.h"
#include "monitors/storage/store_event_monitor.h"
#include "platform/simulated/simulated_power.h"
#include "platform/simulated/simulated_volumes.h"

namespace TVK {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using namespace testing_support;       // NOLINT(google-build-using-namespace): what drives answer
using platform::DriveAction;
using platform::DriveAnswer;
using platform::DrivePage;
using platform::DriveResult;
using platform::SimulatedDrive;

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
      return {.bytes = AtaValues({{5}}, status)};
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
  /// One more drive like the first.
  void AddSecondDrive() {
    SimulatedDrive second = world_.machine.drives().Get().at(1);
    second.listing.path = "/dev/sdc";
    second.listing.serial_number = kOtherSerial;
    second.read = [read = second.read](DrivePage page) {
      return page == DrivePage::kAtaIdentify
                 ? DriveAnswer{.bytes = AtaIdentify({.model = "Ata", .serial = kOtherSerial, .rotation_rate = 1})}
                 : read(page);
    };
    SetDrive(2, second);
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
                         Row{"says what nobody knows", {.result = 9}, {L"Unknown result 9"}, 1, L""},
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

TEST_F(SelfTestMonitorsTest, TheRestOfARoundThatAStopEndedComesWithTheNextStart) {
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  AddSecondDrive();
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(tested_.takes + 30s);
  EXPECT_EQ(Results().size(), 1u);
  EXPECT_TRUE(started_) << "the second test runs";
  const std::vector<std::wstring> both = {KeyOf(kSsdSerial), KeyOf(kOtherSerial)};
  std::vector<std::wstring> drives = DrivesOf(L"ReadSelfTestResult");
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(1h);
  for (const std::wstring& drive : DrivesOf(L"ReadSelfTestResult"))
    drives.push_back(drive);
  EXPECT_EQ(drives, both);
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(1h);
  EXPECT_TRUE(Results().empty()) << "the round is through";

  // One that is due anyway is whole.
  world_.runtime.AdvanceBy(24h - 1h);
  monitor_->Stop();
  world_.runtime.AdvanceBy(48h);
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(DrivesOf(L"ReadSelfTestResult"), both);
}

TEST_F(SelfTestMonitorsTest, AWholeRoundThatFallsDueInTheRestOfOneFollowsIt) {
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  AddSecondDrive();
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(tested_.takes + 30s);  // the second test runs
  monitor_->Stop();
  world_.runtime.AdvanceBy(24h - tested_.takes - 1min);  // from the first result on
  tested_.actions.clear();
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(tested_.takes - 10s);
  EXPECT_EQ(tested_.actions.size(), 1u) << "one after the other";
  world_.runtime.AdvanceBy(9min);
  EXPECT_EQ(DrivesOf(L"ReadSelfTestResult"),
            (std::vector{KeyOf(kOtherSerial), KeyOf(kSsdSerial), KeyOf(kOtherSerial)}));
}

TEST_F(SelfTestMonitorsTest, ADriveThatRunsATestIsComeBackToOnceAndAtTheNextStart) {
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  tested_.runs = true;  // as after a kill in the middle of one
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(9min);
  tested_.runs = false;
  world_.runtime.AdvanceBy(10min);
  EXPECT_EQ(Results().size(), 1u);

  tested_.runs = true;
  world_.runtime.AdvanceBy(24h);
  EXPECT_EQ(Results().size(), 1u);
  tested_.runs = false;
  world_.runtime.AdvanceBy(1h);
  EXPECT_EQ(Results().size(), 1u) << "no third time";
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(10min);
  EXPECT_EQ(Results().size(), 1u) << "of this life";
}

TEST_F(SelfTestMonitorsTest, NoTestOnALowBattery) {
  using platform::ChargeLevel;
  using platform::PowerSource;
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  world_.machine.power().Set({PowerSource::kBattery, 33});
  Start<SATASelfTestEventMonitor>();
  world_.runtime.AdvanceBy(12h);  // between two rounds
  std::size_t tests = 0;
  for (const auto& [status, tested] : {std::pair(platform::PowerStatus{PowerSource::kBattery, 33}, false),
                                       {{PowerSource::kBattery, {}, ChargeLevel::kLow}, false},
                                       {{PowerSource::kBattery, 34, ChargeLevel::kCritical}, false},
                                       {{PowerSource::kAc, 5, ChargeLevel::kLow}, true},
                                       {{PowerSource::kBattery, 34}, true},
                                       {{PowerSource::kBattery, {}, ChargeLevel::kHigh}, true}}) {
    world_.machine.power().Set(status);
    world_.runtime.AdvanceBy(24h);
    tests += tested;
    EXPECT_EQ(Results().size(), tests) << status.percent.value_or(0);
  }
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

TEST_F(SelfTestMonitorsTest, DrivesThatHangHoldUpNoOtherOne) {
  described_.clear();  // the datasets themselves run
  SetInterval(L"SATA_SSD_SelfTestResult", L"1d");
  const auto comes_back = world_.runtime.MakeEvent(platform::EventReset::kManual);
  const auto hang = [&] { world_.runtime.Wait(*comes_back, platform::kForever); };
  const SimulatedDrive healthy = world_.machine.drives().Get().at(1);
  struct Row {
    DrivePage page;
    bool volumes;
  };
  for (const Row& row : {Row{DrivePage::kAtaIdentify, true}, Row{DrivePage::kAtaSmartValues, false}}) {
    SCOPED_TRACE(static_cast<int>(row.page));
    Forget();
    tested_ = {};
    comes_back->Reset();
    std::vector<SimulatedDrive> drives;
    for (const char* const number : {"1", "2", "3"}) {
      SimulatedDrive hanging = Ata(number, number, 1, AtaValues({}));
      hanging.read = [&, pages = hanging.pages](DrivePage page) -> DriveAnswer {
        if (page == row.page) hang();
        const auto found = pages.find(page);
        return found == pages.end() ? DriveAnswer{DriveResult::kNotSupported} : DriveAnswer{.bytes = found->second};
      };
      drives.push_back(std::move(hanging));
    }
    drives.push_back(healthy);
    world_.machine.drives().Set(drives);
    world_.machine.volumes().while_listing = [&] {
      if (row.volumes) hang();
    };
    life_.emplace(world_);
    {
      RunningMonitor store(world_.runtime, Make<StoreEventMonitor>(life_->services()));
      RunningMonitor health(world_.runtime, Make<SATASmartEventMonitor>(life_->services()));
      RunningMonitor tests(world_.runtime, Make<SATASelfTestEventMonitor>(life_->services()));
      world_.runtime.AdvanceBy(StorageCollector::DriveLane::kSessionLimit + 1s);
      EXPECT_EQ(DrivesOf(L"ReadSMARTPerSession"), std::vector{KeyOf(kSsdSerial)});
      world_.runtime.AdvanceBy(10min);
      EXPECT_EQ(Results().size(), 1u);
      comes_back->Set();
    }
    world_.runtime.Settle();
  }
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
