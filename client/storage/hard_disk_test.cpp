// What a drive is to the datasets, and who asks it when.
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <stdexcept>
#include <thread>

#include "client/storage/hard_disk_info_collector.h"
#include "client/text/hash_utility.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/drive_sectors.h"
#include "testing/log_capture.h"

namespace StorageCollector {
namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only
using namespace testing_support;       // NOLINT(google-build-using-namespace): what drives answer
using platform::DriveAnswer;
using platform::DriveBus;
using platform::DriveListing;
using platform::DrivePage;
using platform::DriveResult;
using platform::SimulatedDrive;

Sector NvmeController() {
  Sector controller(4096, ' ');
  std::ranges::copy(std::string_view("OWN SERIAL"), controller.begin() + 4);
  std::ranges::copy(std::string_view("Own model"), controller.begin() + 24);
  return controller;
}

class HardDiskTest : public testing::Test {
 protected:
  /// On a thread of the world, where it may wait.
  void Run(std::function<void()> work) {
    std::thread thread = runtime_.StartThread("test", std::move(work));
    runtime_.Join(thread);
  }
  std::vector<HardDisk> Drives() {
    std::vector<HardDisk> drives;
    Run([&] { drives = collector_->GetDrives(); });
    return drives;
  }

  LogCapture logs_;
  platform::VirtualRuntime runtime_;
  platform::SimulatedDrives door_;
  std::optional<HardDiskInfoCollector> collector_{std::in_place, runtime_, door_};
};

TEST_F(HardDiskTest, IsWhatItSaysItselfElseWhatTheSystemSays) {
  const Sector controller = NvmeController();
  const auto identify = [](std::uint16_t rate) {
    return AtaIdentify({.model = "Own model", .serial = "OWN SERIAL", .rotation_rate = rate});
  };
  const auto listing = [](DriveBus bus, std::optional<bool> rotating) {
    return DriveListing{
        .path = "/dev/x", .bus = bus, .model = "Model", .serial_number = "SERIAL", .rotating = rotating};
  };
  struct Row {
    const char* what;
    SimulatedDrive drive;
    DriveKind kind;
    const wchar_t* type;
    bool own, smart;
  };
  for (const Row& row : {
           Row{"NVMe",
               {.listing = listing(DriveBus::kNvme, {}), .pages = {{DrivePage::kNvmeController, controller}}},
               DriveKind::kNvme,
               L"NVMe SSD",
               true,
               true},
           Row{"NVMe that may not be asked",
               {.listing = listing(DriveBus::kNvme, {}), .opening = DriveResult::kNoRight},
               DriveKind::kNvme,
               L"NVMe SSD",
               false,
               true},
           Row{"SATA, says that it turns",
               {.listing = listing(DriveBus::kAta, {}), .pages = {{DrivePage::kAtaIdentify, identify(7200)}}},
               DriveKind::kAta,
               L"SATA HDD",
               true,
               true},
           Row{"SATA, says that it does not",
               {.listing = listing(DriveBus::kAta, true), .pages = {{DrivePage::kAtaIdentify, identify(1)}}},
               DriveKind::kSataSsd,
               L"SATA SSD",
               true,
               true},
           Row{"SATA, the system knows",
               {.listing = listing(DriveBus::kAta, false), .power = platform::DrivePower::kAsleep},
               DriveKind::kSataSsd,
               L"SATA SSD",
               false,
               true},
           Row{"SATA, nobody knows", {.listing = listing(DriveBus::kAta, {})}, DriveKind::kAta, L"SATA", false, true},
           Row{"USB that speaks ATA",
               {.listing = listing(DriveBus::kUsb, {}), .pages = {{DrivePage::kAtaIdentify, identify(1)}}},
               DriveKind::kAta,
               L"USB SSD",
               true,
               true},
           Row{"USB that does not", {.listing = listing(DriveBus::kUsb, {})}, DriveKind::kOther, L"USB", false, false},
           Row{"card",
               {.listing = listing(DriveBus::kCard, false), .pages = {{DrivePage::kAtaIdentify, identify(1)}}},
               DriveKind::kOther,
               L"Card",
               false,
               false},
           Row{"SCSI that speaks ATA",
               {.listing = listing(DriveBus::kScsi, {}), .pages = {{DrivePage::kAtaIdentify, identify(1)}}},
               DriveKind::kAta,
               L"SCSI SSD",
               true,
               true},
           Row{"SCSI", {.listing = listing(DriveBus::kScsi, true)}, DriveKind::kOther, L"SCSI HDD", false, false},
           Row{"virtual",
               {.listing = listing(DriveBus::kOther, {}), .pages = {{DrivePage::kAtaIdentify, identify(1)}}},
               DriveKind::kOther,
               L"Other",
               false,
               false},
       }) {
    SCOPED_TRACE(row.what);
    collector_.emplace(runtime_, door_);
    door_.Set({row.drive});
    const HardDisk drive = Drives().at(0);
    EXPECT_EQ(drive.kind(), row.kind);
    EXPECT_EQ(drive.getDriveType(), row.type);
    EXPECT_EQ(drive.getProductName(), row.own ? L"Own model" : L"Model");
    EXPECT_EQ(drive.getSerialNumber(), row.own ? L"OWN SERIAL" : L"SERIAL");
    EXPECT_EQ(drive.getHashedSerialNumber(), TVK::HashUtility::HashSerialNumber(drive.getSerialNumber()));
    EXPECT_EQ(drive.supports_smart(), row.smart);
  }
}

TEST_F(HardDiskTest, IsFoundOnceAndAskedWhoItIsOnce) {
  std::atomic<int> asked = 0;  // by several at once
  const auto drive = [&](const char* path, const char* serial) {
    return SimulatedDrive{
        .listing = {.path = path, .bus = DriveBus::kUsb, .model = "M", .serial_number = serial},
        .read = [&](DrivePage) -> DriveAnswer { return ++asked, DriveAnswer{DriveResult::kNotSupported}; }};
  };
  door_.Set({drive("/dev/sda", "1"), drive("/dev/sdb", "1"), drive("/dev/sdc", "2"), drive("/dev/sdd", ""),
             drive("/dev/sde", "")});
  EXPECT_EQ(Drives().size(), 4u) << "two paths to one; those without a number may be two";
  EXPECT_EQ(asked, 5);
  EXPECT_EQ(Drives().size(), 4u);
  EXPECT_EQ(asked, 5) << "what will not tell is not asked again";
  door_.Set({});
  EXPECT_TRUE(Drives().empty());
  door_.Set({drive("/dev/sda", "1")});
  Drives();
  EXPECT_EQ(asked, 6) << "it was attached anew";
}

TEST_F(HardDiskTest, AnOddAnswerToWhoItIsIsNotTheLastWord) {
  for (const DriveAnswer& odd : {DriveAnswer{.bytes = Sector(511)}, DriveAnswer{DriveResult::kRefused, 0x5104}}) {
    SCOPED_TRACE(static_cast<int>(odd.result));
    collector_.emplace(runtime_, door_);
    DriveAnswer answer = odd;
    door_.Set({{.listing = {.path = "/dev/sda", .bus = DriveBus::kUsb, .model = "Bridge", .serial_number = "1"},
                .read = [&](DrivePage) { return answer; }}});
    for (int look = 0; look < 5; ++look)
      EXPECT_FALSE(Drives().at(0).identified()) << "it may be busy";
    runtime_.AdvanceBy(1min);
    EXPECT_FALSE(Drives().at(0).identified());
    runtime_.AdvanceBy(1min);
    EXPECT_TRUE(Drives().at(0).identified()) << "three times is what it has to say";
    EXPECT_EQ(Drives().at(0).getSerialNumber(), L"1");
    EXPECT_EQ(Drives().at(0).kind(), DriveKind::kOther);
    answer = {.bytes = AtaIdentify({.model = "Disk", .serial = "OWN"})};
    EXPECT_EQ(Drives().at(0).getSerialNumber(), L"OWN");
    EXPECT_EQ(Drives().at(0).kind(), DriveKind::kAta);
    for (const auto& [result, stays] : {std::pair(DriveResult::kNoRight, true),
                                        {DriveResult::kGone, true},
                                        {DriveResult::kRefused, false},
                                        {DriveResult::kDone, true},  // and says who it is
                                        {DriveResult::kNotSupported, false},
                                        {DriveResult::kDone, true},
                                        {DriveResult::kFailed, false}}) {
      answer.result = result;
      EXPECT_EQ(Drives().at(0).identified(), stays) << "behind its bridge it may be another one: " << int(result);
    }
  }
}

TEST_F(HardDiskTest, AnNvmeDriveKnowsWhoItIs) {
  DriveAnswer answer{DriveResult::kNotSupported, 1117};
  door_.Set({{.listing = {.path = "/dev/nvme0", .bus = DriveBus::kNvme, .model = "Disk", .serial_number = "0025_38"},
              .read = [&](DrivePage) { return answer; }}});
  EXPECT_FALSE(Drives().at(0).identified()) << "no context with the number of the list";
  for (int minute = 0; minute < 2; ++minute) {
    runtime_.AdvanceBy(1min);
    Drives();
  }
  EXPECT_EQ(Drives().at(0).getSerialNumber(), L"0025_38") << "a system that cannot ask";
  answer = {.bytes = NvmeController()};
  EXPECT_EQ(Drives().at(0).getSerialNumber(), L"OWN SERIAL");
}

TEST_F(HardDiskTest, AListThatFailsLeavesTheDrivesOfTheOneBefore) {
  struct FailingDrives final : platform::Drives {
    std::vector<platform::DriveListing> List() override {
      if (failing) throw std::bad_alloc();
      return inner.List();
    }
    platform::DriveOpening Open(const platform::DriveListing& drive) override { return inner.Open(drive); }
    platform::SimulatedDrives inner;
    bool failing = false;
  } door;
  HardDiskInfoCollector collector(runtime_, door);
  const auto paths = [&] {
    std::size_t count = 0;
    Run([&] { count = collector.GetAllPhysicalDrivePaths().size(); });
    return count;
  };
  EXPECT_EQ(paths(), 1u);
  door.failing = true;
  EXPECT_EQ(paths(), 1u);
  door.failing = false;
  door.inner.Set({});
  EXPECT_EQ(paths(), 0u) << "asked anew";
}

TEST_F(HardDiskTest, ADriveThatTheSystemGaveUpOnRestsToo) {
  int asked = 0;
  door_.Set({{.listing = {.path = "/dev/sda", .bus = DriveBus::kAta, .serial_number = "1"},
              .read = [&](DrivePage) -> DriveAnswer {
                if (++asked == 2) throw std::runtime_error("no memory");
                return {DriveResult::kTimedOut};
              }}});
  Drives();
  Drives();
  EXPECT_EQ(asked, 1);
  runtime_.AdvanceBy(DriveLane::kRest);
  EXPECT_FALSE(Drives().at(0).identified()) << "a question that throws is no answer";
  EXPECT_EQ(asked, 2);
}

TEST_F(HardDiskTest, AHangingDriveIsLeftBehindWithItsThread) {
  const auto comes_back = runtime_.MakeEvent(platform::EventReset::kManual);
  const auto stop = runtime_.MakeEvent(platform::EventReset::kManual);
  door_.Set({{.listing = {.path = "/dev/nvme0n1", .bus = DriveBus::kNvme, .serial_number = "1"},
              .read = [&](DrivePage) -> DriveAnswer {
                runtime_.Wait(*comes_back, platform::kForever);
                return {DriveResult::kFailed};
              }}});
  const auto begin = runtime_.clock().Steady();
  std::optional<HardDisk> drive = Drives().at(0);
  const auto silences = [&] {
    Silence silence = Silence::kNone;
    Run([&] { silence = drive->ReadNvmeHealth(stop.get()).silence; });
    return silence;
  };
  EXPECT_EQ(runtime_.clock().Steady() - begin, DriveLane::kSessionLimit);
  EXPECT_EQ(silences(), Silence::kLeftAlone);
  comes_back->Set();
  runtime_.Settle();
  EXPECT_EQ(silences(), Silence::kLeftAlone) << "still resting";
  runtime_.AdvanceBy(DriveLane::kRest);
  EXPECT_EQ(silences(), Silence::kFailed);
  comes_back->Reset();
  EXPECT_EQ(silences(), Silence::kHung);
  stop->Set();
  runtime_.AdvanceBy(DriveLane::kRest);
  EXPECT_EQ(silences(), Silence::kStopped);
  collector_.reset();
  drive.reset();  // the last who knows it
  comes_back->Set();
  runtime_.Settle();
  EXPECT_EQ(logs_.Count(L"/dev/nvme0n1: its identity is not told: it did not answer in time"), 1u);
}

}  // namespace
}  // namespace StorageCollector
