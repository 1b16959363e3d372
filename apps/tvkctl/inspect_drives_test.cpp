#include "apps/tvkctl/inspect_drives.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <sstream>

#include "platform/files.h"
#include "platform/recorded_drives.h"
#include "platform/simulated/simulated_drives.h"
#include "platform/simulated/simulated_machine.h"
#include "testing/drive_sectors.h"
#include "testing/temp_folder.h"

namespace tvkctl {
namespace {

using Bytes = std::vector<std::uint8_t>;
using platform::DriveBus;
using platform::DrivePage;
using testing_support::WithChecksum;

constexpr char kSecret[] = "SECRET-1234567";
constexpr char kSecretOfNvme[] = "SECRET-OF-NVME";

void Put(Bytes& page, std::size_t at, const std::string& text, std::size_t swap = 0) {
  for (std::size_t i = 0; i < text.size(); ++i)
    page[(at + i) ^ swap] = static_cast<std::uint8_t>(text[i]);
}

class InspectDrivesTest : public testing::Test {
 protected:
  InspectDrivesTest() {
    Bytes identify(512);
    Put(identify, 20, std::string("      ") + kSecret, 1);
    Put(identify, 216, "WWNUNIT8ANDMORE!");
    Put(identify, 261, kSecret);
    Put(identify, 352, std::string("MEDIUM") + kSecret, 1);
    Put(identify, 54, std::string("Disk ") + kSecret, 1);
    identify[510] = 0xA5;
    Bytes values(512);
    values[2] = 9;  // power-on hours, which stay
    Put(values, 400, kSecret);
    Bytes tests(512);
    Put(tests, 2 + 24 + 9, "MAKERSOWN");
    Bytes controller(4096);
    Put(controller, 4, std::string(kSecretOfNvme) + "      ");
    Put(controller, 112, "FRUOFUNIT8ANDMORE");
    Put(controller, 768, std::string("nqn.2014-08.org.nvmexpress:") + kSecretOfNvme);
    Put(controller, 4000, kSecretOfNvme);
    const std::map<DrivePage, Bytes> nvme = {{DrivePage::kNvmeController, controller},
                                             {DrivePage::kNvmeHealth, Bytes(512, 7)},
                                             {DrivePage::kNvmeSelfTestLog, Bytes(564, 8)}};
    const std::map<DrivePage, Bytes> ata = {{DrivePage::kAtaIdentify, WithChecksum(identify)},
                                            {DrivePage::kAtaSmartValues, WithChecksum(values)},
                                            {DrivePage::kAtaSelfTestLog, WithChecksum(tests)}};
    machine_.drives().Set(
        {{.listing = {.path = "/dev/sda",
                      .bus = DriveBus::kAta,
                      .model = std::string("Disk ") + kSecret,
                      .serial_number = kSecret,
                      .bytes = 1024,
                      .rotating = true},
          .pages = ata},
         {.listing = {.path = "/dev/sdb", .bus = DriveBus::kUsb, .model = "Stick\x1b[2J", .removable = true},
          .opening = platform::DriveResult::kNoRight},
         {.listing = {.path = "/dev/sdc", .bus = DriveBus::kAta, .serial_number = "SECRET-ASLEEP"},
          .power = platform::DrivePower::kAsleep,
          .pages = ata},
         {.listing = {.path = "/dev/mmcblk0", .bus = DriveBus::kCard}},
         {.listing = {.path = "/dev/nvme0n1", .bus = DriveBus::kNvme, .serial_number = "SECRET-SPACE-1"},
          .pages = nvme},
         {.listing = {.path = "/dev/nvme0n2", .bus = DriveBus::kNvme, .serial_number = "SECRET-SPACE-2"},
          .pages = nvme}});
  }

  int Run(bool json, const std::filesystem::path& record = {}) {
    out_.str("");
    errors_.str("");
    return RunInspectDrives({.record_folder = record, .json = json, .machine_name = "this machine"}, machine_, out_,
                            errors_);
  }

  platform::SimulatedMachine machine_;
  TempFolder folder_;
  std::ostringstream out_;
  std::ostringstream errors_;
};

TEST_F(InspectDrivesTest, ShowsTheDrives) {
  machine_.drives().Change([](auto& drives) {
    drives.resize(2);
    drives[0].listing.model = "Disk";
    drives[0].listing.path = "/dev/sd\x1b";
  });
  ASSERT_EQ(Run(true), 0);
  EXPECT_EQ(out_.str(),
            R"({"drives":[{"bus":"ATA","bytes":1024,"firmware":"","model":"Disk","path":"/dev/sd?",)"
            R"("removable":false,"rotating":true,)"
            R"("serialHash":"37EC6B05E67C7F9F84B188B50E4983BBEF734A14C3DFF118308D427E529FC0E8"},)"
            R"({"bus":"USB","bytes":0,"firmware":"","model":"Stick?[2J","path":"/dev/sdb","removable":true,)"
            R"("rotating":null,"serialHash":""}]})"
            "\n");
  ASSERT_EQ(Run(false), 0);
  EXPECT_NE(out_.str().find("/dev/sdb  USB  0                yes        Stick.[2J"), std::string::npos) << out_.str();
  EXPECT_EQ(out_.str().find(kSecret), std::string::npos);
  machine_.drives().Set({});
  EXPECT_EQ(Run(false), 3);
  EXPECT_EQ(errors_.str(), "tvkctl: this machine: nothing tells of its drives\n");
}

TEST_F(InspectDrivesTest, RecordsWhatNobodyIsKnownBy) {
  ASSERT_EQ(Run(true, folder_.path() / "rec"), 0) << errors_.str();
  for (const char* said : {R"("recorded":{"ata-identify":"recorded","ata-self-test-log":"recorded",)"
                           R"("ata-smart-thresholds":"not supported","ata-smart-values":"recorded"})",
                           R"("ata-identify":"no right")", R"("ata-identify":"the drive is asleep")",
                           R"("nvme-self-test-log":"recorded")", R"("recorded":{})"})
    EXPECT_NE(out_.str().find(said), std::string::npos) << said << out_.str();
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.path())) {
    if (!entry.is_regular_file()) continue;
    const std::string content = platform::ReadWholeFile(entry.path(), 1 << 16).value();
    for (const char* text :
         {"SECRET", "ESRCTE", "CRET-1", "WWN", "UNIT", "MAKERS", "MEDIUM", "EMIDMU", "ANDMORE", "nqn"})
      EXPECT_EQ(content.find(text), std::string::npos) << entry.path() << text;
  }

  const auto drives = platform::MakeRecordedDrives(folder_.path() / "rec" / "drives");
  const std::vector<platform::DriveListing> listed = drives->List();
  std::string told;
  for (const platform::DriveListing& drive : listed)
    told += drive.path + '=' + drive.serial_number + ' ';
  EXPECT_EQ(told,
            "/dev/sda=BLANKED-1 /dev/sdb= /dev/sdc=BLANKED-3 /dev/mmcblk0= /dev/nvme0n1=BLANKED-5 "
            "/dev/nvme0n2=BLANKED-5 ");
  ASSERT_EQ(listed.size(), 6u);
  EXPECT_EQ(listed[0].model, "Disk XXXXXXXXXXXXXX");
  EXPECT_EQ(listed[0].bytes, 1024u);
  EXPECT_EQ(listed[0].rotating, true);

  const platform::DriveOpening disk = drives->Open(listed[0]);
  ASSERT_TRUE(disk.drive);
  const Bytes identify = disk.drive->Read(DrivePage::kAtaIdentify).bytes;
  ASSERT_EQ(identify.size(), 512u);
  EXPECT_EQ(std::string(identify.begin() + 20, identify.begin() + 40), "LBNAEK-D 1          ");
  for (const DrivePage page : {DrivePage::kAtaIdentify, DrivePage::kAtaSmartValues, DrivePage::kAtaSelfTestLog}) {
    const Bytes bytes = disk.drive->Read(page).bytes;
    EXPECT_EQ(std::accumulate(bytes.begin(), bytes.end(), 0) % 256, 0);
  }
  EXPECT_EQ(disk.drive->Read(DrivePage::kAtaSmartValues).bytes.at(2), 9);
  EXPECT_EQ(disk.drive->Read(DrivePage::kAtaSmartThresholds).result, platform::DriveResult::kNotSupported);
  EXPECT_EQ(disk.drive->Do(platform::DriveAction::kAtaStartShortSelfTest).result, platform::DriveResult::kNotSupported);
  EXPECT_EQ(disk.drive->ReadPower(), platform::DrivePower::kAwake);
  const platform::DriveOpening nvme = drives->Open(listed[4]);
  const Bytes controller = nvme.drive->Read(DrivePage::kNvmeController).bytes;
  EXPECT_EQ(std::string(controller.begin() + 4, controller.begin() + 24), "BLANKED-5           ");
  EXPECT_EQ(nvme.drive->Read(DrivePage::kNvmeHealth).bytes.at(231), 7);

  EXPECT_EQ(Run(false, folder_.path() / "rec"), 2);
  EXPECT_EQ(errors_.str().find("tvkctl: "), 0u);
  EXPECT_NE(errors_.str().find("has a folder \"drives\" already\n"), std::string::npos);
}

TEST_F(InspectDrivesTest, SaysWhatItRecordedAndWhatItCouldNot) {
  ASSERT_EQ(Run(false, folder_.path()), 0);
  for (const char* line :
       {"/dev/sda      ata-smart-thresholds  not supported\n", "/dev/sdb      ata-identify          no right\n",
        "/dev/mmcblk0                        has no pages\n", "/dev/nvme0n2  nvme-health           recorded\n"})
    EXPECT_NE(out_.str().find(line), std::string::npos) << line << out_.str();
  std::ofstream(folder_.path() / "file") << "x";
  EXPECT_EQ(Run(false, folder_.path() / "file" / "in"), 3);
  EXPECT_EQ(out_.str(), "");
}

}  // namespace
}  // namespace tvkctl
