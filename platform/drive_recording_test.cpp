#include "platform/drive_recording.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/drive_blanking.h"
#include "platform/recorded_drives.h"
#include "testing/recorded_tree.h"

namespace platform {
namespace {

TEST(DriveRecordingTest, TextsComeBackAsTheyWere) {
  const DriveListing full = {.path = R"(\\.\PhysicalDrive0)",
                             .bus = DriveBus::kCard,
                             .model = "Contoso Größe 1",
                             .firmware_version = "1.0",
                             .serial_number = "BLANKED-1",
                             .bytes = UINT64_MAX,
                             .rotating = false,
                             .removable = true};
  for (const DriveListing& drive : {full, DriveListing{.path = "/dev/sda"}})
    EXPECT_EQ(DecodeDriveText(EncodeDriveText(drive)), drive);
  DriveListing lines = full;
  lines.model = "a\nserial b\n";
  EXPECT_EQ(DecodeDriveText(EncodeDriveText(lines))->serial_number, "BLANKED-1");

  EXPECT_FALSE(DecodeDriveText("bus ATA\npath \n"));
  const DriveListing odd = {.path = "/dev/sda", .model = "b"};
  EXPECT_EQ(DecodeDriveText("path /dev/sda\r\nbytes 1x\nbus ata\nrotating maybe\nremovable\nmodel a\nmodel b\nnews 1"),
            odd);
}

TEST(DriveRecordingTest, FoldersHaveHarmlessNames) {
  for (const auto& [path, name] : {std::pair("/dev/sda", "sda"),
                                   {R"(\\.\PhysicalDrive1)", "PhysicalDrive1"},
                                   {"/dev/..", "drive.."},
                                   {"a/b c", "b_c"},
                                   {"", "drive"}}) {
    EXPECT_EQ(DriveFolderName(path), name);
    EXPECT_TRUE(IsDriveFolderName(name));
  }
  EXPECT_EQ(DriveFolderName(std::string(100, 'x')).size(), 64u);
  for (const char* name : {"", ".", "..", ".x", "a/b", "a b"})
    EXPECT_FALSE(IsDriveFolderName(name));
  EXPECT_FALSE(IsDriveFolderName(std::string(65, 'x')));
}

TEST(DriveRecordingTest, AChecksumIsAsRightAsItWas) {
  const auto sum = [](const std::vector<std::uint8_t>& page) {
    std::uint8_t all = 0;
    for (const std::uint8_t byte : page)
      all = static_cast<std::uint8_t>(all + byte);
    return all;
  };
  for (const bool has_one : {true, false}) {
    DriveRecording recording;
    std::vector<std::uint8_t>& page = recording.pages[DrivePage::kAtaIdentify];
    page.resize(512, 1);
    page[510] = has_one ? 0xA5 : 0;
    const std::uint8_t before = sum(page);
    BlankIdentity(recording, "BLANKED-1");
    EXPECT_EQ(page[20], 'L');
    EXPECT_EQ(sum(page) == before, has_one);
    EXPECT_EQ(page[511] == 1, !has_one);
  }
}

TEST(DriveRecordingTest, BlanksWhatIsNobodysBusinessAndNoMore) {
  struct Row {
    DrivePage page;
    std::size_t first, last, count;  ///< Of the bytes that became zero.
  };
  for (const Row& row : {Row{DrivePage::kAtaIdentify, 216, 411, 16 + 62 + 60},
                         {DrivePage::kAtaSmartValues, 366, 510, 2 + 125},
                         {DrivePage::kAtaSmartThresholds, 380, 510, 131},
                         {DrivePage::kAtaSelfTestLog, 11, 507, 21 * 15 + 2},
                         {DrivePage::kNvmeController, 112, 4095, 16 + 256 + 1024},
                         {DrivePage::kNvmeHealth, 232, 511, 280},
                         {DrivePage::kNvmeSelfTestLog, 30, 563, 20 * 2}}) {
    SCOPED_TRACE(PageFileName(row.page));
    DriveRecording recording;
    std::vector<std::uint8_t>& page = recording.pages[row.page];
    page.resize(PageSize(row.page), 0xA5);
    BlankIdentity(recording, "BLANKED-1");
    EXPECT_EQ(std::ranges::find(page, 0) - page.begin(), row.first);
    EXPECT_EQ(page.rend() - std::find(page.rbegin(), page.rend(), 0) - 1, row.last);
    EXPECT_EQ(std::ranges::count(page, 0), row.count);
  }
}

TEST(RecordedDrivesTest, PassesOverWhatIsNoRecording) {
  const RecordedTree tree = {{"a/drive.txt", "path /dev/sdb\n"},
                             {"b/drive.txt", "path /dev/sdb\nmodel second\n"},
                             {"c/drive.txt", "path /dev/nvme0n1\n"},
                             {"d/drive.txt", "no path"},
                             {"e/other", ""},
                             {"f/drive.txt", "path /dev/sdf\n" + std::string(kDriveTextLimit, '\n')},
                             {".g/drive.txt", "path /dev/sdg\n"},
                             {"h", "path /dev/sdh\n"},
                             {"a/ata-identify", std::string(511, 'x')},
                             {"a/ata-smart-values", std::string(513, 'x')},
                             {"a/ata-self-test-log", std::string(512, 'x')}};
  std::filesystem::create_directory(tree.root() / "a" / "ata-smart-thresholds");
  const auto drives = MakeRecordedDrives(tree.root());
  EXPECT_EQ(drives->List(), (std::vector<DriveListing>{{.path = "/dev/sdb"}, {.path = "/dev/nvme0n1"}}));
  const DriveOpening opening = drives->Open({.path = "/dev/sdb"});
  ASSERT_TRUE(opening.drive);
  for (const DrivePage page : {DrivePage::kAtaIdentify, DrivePage::kAtaSmartValues, DrivePage::kAtaSmartThresholds})
    EXPECT_EQ(opening.drive->Read(page).result, DriveResult::kFailed);
  EXPECT_EQ(opening.drive->Read(DrivePage::kAtaSelfTestLog).bytes.size(), 512u);
  EXPECT_EQ(opening.drive->Read(DrivePage::kNvmeHealth).result, DriveResult::kNotSupported);
  EXPECT_EQ(drives->Open({.path = "/dev/sdh"}).result, DriveResult::kGone);
  EXPECT_TRUE(MakeRecordedDrives(tree.root() / "absent")->List().empty());
}

}  // namespace
}  // namespace platform
