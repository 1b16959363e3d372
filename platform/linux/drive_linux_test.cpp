#include <gtest/gtest.h>

#include <cerrno>
#include <deque>

#include "platform/linux/doors_linux.h"
#include "platform/machine.h"
#include "testing/recorded_tree.h"

namespace platform {
namespace {

using Bytes = std::vector<std::uint8_t>;
using enum DriveResult;

const Bytes kUnknownCommand = {0x70, 0, 5, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0};
const Bytes kReset = {0x72, 6, 0x29, 0};
Bytes Registers(std::uint8_t count) {
  return {0x72, 1, 0, 0x1D, 0, 0, 0, 14, 9, 12, 0, 0, 0, count, 0, 0, 0, 0, 0, 0, 0, 0x50};
}

DeviceReply Sector() {
  return {.bytes = 512};
}
DeviceReply Sense(Bytes sense) {
  return {.status = 2, .sense = std::move(sense)};
}

/// A device file that says what the test lays in.
struct Script {
  std::deque<DeviceReply> replies;
  int open_error = 0;
  std::uint8_t fill = 0;
  std::string asked;  ///< A letter for each thing done: o(pen), L(ong) and s(hort) pass-through, n(vme)
};

class ScriptedDevice final : public DriveDevice {
 public:
  explicit ScriptedDevice(Script& script) : script_(script) {}

  DeviceReply SendScsi(std::span<const std::uint8_t> command, std::span<std::uint8_t> in) override {
    EXPECT_EQ(command.size(), command[0] == 0x85 ? 16u : 12u);
    return Answer(command[0] == 0x85 ? 'L' : 's', in);
  }
  DeviceReply SendNvme(const NvmeCommand& command, std::span<std::uint8_t> in) override {
    EXPECT_EQ(command.bytes, in.size());
    return Answer('n', in);
  }

 private:
  DeviceReply Answer(char what, std::span<std::uint8_t> in) {
    script_.asked += what;
    std::ranges::fill(in, script_.fill);
    if (script_.replies.empty()) return {.error = ENODEV};
    DeviceReply reply = std::move(script_.replies.front());
    script_.replies.pop_front();
    return reply;
  }

  Script& script_;
};

class LinuxDriveTest : public testing::Test {
 protected:
  LinuxDriveTest() {
    for (const char* entry : {"sda", "nvme0n1", "mmcblk0"})
      tree_.Write("/sys/block/" + std::string(entry) + "/device/" + (entry[0] == 'm' ? "name" : "model"), "x");
  }

  DriveOpening Open(const std::string& name, DriveBus bus, bool removable = false) {
    return drives_->Open({.path = "/dev/" + name, .bus = bus, .model = "x", .removable = removable});
  }
  std::string Asked() { return std::exchange(script_.asked, {}); }

  RecordedTree tree_;
  Script script_;
  std::unique_ptr<Drives> drives_ = MakeDrives(Sysroot(tree_.root()), [this](const std::string& path) -> DeviceOpening {
    EXPECT_TRUE(path.starts_with("/dev/"));
    script_.asked += 'o';
    if (script_.open_error != 0) return {nullptr, script_.open_error};
    return {std::make_unique<ScriptedDevice>(script_)};
  });
};

TEST_F(LinuxDriveTest, ReadsASectorAsTheBridgeUnderstandsIt) {
  struct Row {
    const char* what;
    std::deque<DeviceReply> replies;
    DriveResult result;
    std::uint32_t error;
    const char* asked;
    const char* asked_again;  ///< For a second page that comes at once.
  };
  const Row rows[] = {
      {"at once", {Sector()}, kDone, 0, "oL", "L"},
      {"after a reset", {Sense(kReset), Sector()}, kDone, 0, "oLL", "L"},
      {"in the short form", {Sense(kUnknownCommand), Sector()}, kDone, 0, "oLs", "s"},
      {"in the short form after news", {Sense(kUnknownCommand), Sense(kReset), Sector()}, kDone, 0, "oLss", "s"},
      {"not at all", {Sense(kUnknownCommand), Sense(kUnknownCommand)}, kNotSupported, 0, "oLs", "L"},
      {"news without an end", {Sense(kReset), Sense(kReset), Sense(kReset), Sense(kReset)}, kFailed, EIO, "oLLLL", "L"},
      {"a part", {{.bytes = 511}}, kFailed, EIO, "oL", "L"},
      {"too late", {{.timed_out = true, .failed = true}}, kTimedOut, ETIMEDOUT, "oL", "L"},
      {"pulled out", {{.gone = true, .failed = true}}, kGone, ENODEV, "oL", "L"},
      {"no right", {{.error = EPERM}}, kNoRight, EPERM, "oL", "L"},
      {"a driver that has no such thing", {{.error = ENOTTY}}, kNotSupported, ENOTTY, "oL", "L"},
      {"no memory", {{.error = ENOMEM}}, kFailed, ENOMEM, "oL", "L"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    script_.fill = 0x5A;
    script_.replies = row.replies;
    const DriveOpening opening = Open("sda", DriveBus::kAta);
    ASSERT_TRUE(opening.drive);
    const DriveAnswer answer = opening.drive->Read(DrivePage::kAtaSmartValues);
    EXPECT_EQ(answer.result, row.result);
    EXPECT_EQ(answer.error, row.error);
    EXPECT_EQ(answer.bytes, row.result == kDone ? Bytes(512, 0x5A) : Bytes());
    EXPECT_EQ(Asked(), row.asked);
    script_.replies = {Sector()};
    EXPECT_EQ(opening.drive->Read(DrivePage::kAtaIdentify).result, kDone);
    EXPECT_EQ(Asked(), row.asked_again);
  }
}

TEST_F(LinuxDriveTest, ReadsTheLogsOfNvme) {
  const DriveOpening opening = Open("nvme0n1", DriveBus::kNvme);
  ASSERT_TRUE(opening.drive);
  script_.replies = {{.bytes = 564}, {.status = 0x4109}, {.timed_out = true, .status = 0x371}, {}, {.error = EACCES}};
  EXPECT_EQ(opening.drive->Read(DrivePage::kNvmeSelfTestLog).bytes.size(), 564u);
  EXPECT_EQ(opening.drive->Read(DrivePage::kNvmeSelfTestLog).result, kNotSupported);
  EXPECT_EQ(opening.drive->Read(DrivePage::kNvmeHealth).result, kTimedOut);
  EXPECT_EQ(opening.drive->Do(DriveAction::kNvmeAbortSelfTest).result, kDone);
  EXPECT_EQ(opening.drive->Read(DrivePage::kNvmeController).result, kNoRight);
  EXPECT_EQ(opening.drive->Read(DrivePage::kAtaIdentify).result, kNotSupported);
  EXPECT_EQ(opening.drive->ReadPower(), DrivePower::kAwake);
  EXPECT_EQ(Asked(), "onnnnn");
}

TEST_F(LinuxDriveTest, WakesNoDriveToHearWhetherItSleeps) {
  const DriveOpening awake = Open("sda", DriveBus::kUsb);
  script_.replies = {Sense(Registers(0xFF)), Sense(Registers(0)), {}, {.error = EIO}};
  for (const DrivePower power : {DrivePower::kAwake, DrivePower::kAsleep, DrivePower::kUnknown, DrivePower::kUnknown})
    EXPECT_EQ(awake.drive->ReadPower(), power);
  EXPECT_EQ(Asked(), "oLLLL");

  // What the system itself put to sleep is not even opened.
  tree_.Write("/sys/block/sda/device/power/runtime_status", "suspended\n");
  tree_.Write("/sys/block/nvme0n1/device/device/power/runtime_status", "suspended\n");
  EXPECT_EQ(awake.drive->ReadPower(), DrivePower::kAsleep);
  for (const auto& [name, bus] : {std::pair("sda", DriveBus::kAta), std::pair("nvme0n1", DriveBus::kNvme)}) {
    const DriveOpening asleep = Open(name, bus);
    ASSERT_TRUE(asleep.drive);
    EXPECT_EQ(asleep.drive->ReadPower(), DrivePower::kAsleep);
    EXPECT_EQ(Asked(), "");
    script_.open_error = EACCES;
    const DriveAction action =
        bus == DriveBus::kAta ? DriveAction::kAtaStartShortSelfTest : DriveAction::kNvmeStartShortSelfTest;
    EXPECT_EQ(asleep.drive->Do(action).result, kNoRight);
    EXPECT_EQ(Asked(), "o");
    script_.open_error = 0;
  }
}

TEST_F(LinuxDriveTest, OpensWhatCanBeAsked) {
  struct Row {
    const char* what;
    const char* name;
    DriveBus bus;
    bool removable;
    int error;
    DriveResult result;  ///< Of opening it, or else of reading a page.
    const char* asked;
  };
  for (const Row& row : {
           Row{"may not", "sda", DriveBus::kAta, false, EACCES, kNoRight, "o"},
           Row{"pulled out since it was listed", "sda", DriveBus::kAta, false, ENXIO, kGone, "o"},
           Row{"not there", "sdz", DriveBus::kAta, false, 0, kGone, ""},
           Row{"no device's name", "../sda", DriveBus::kAta, false, 0, kGone, ""},
           Row{"a disk in an enclosure", "sda", DriveBus::kUsb, false, 0, kDone, "oL"},
           Row{"a stick", "sda", DriveBus::kUsb, true, 0, kNotSupported, ""},
           Row{"a SAS disk", "sda", DriveBus::kScsi, false, 0, kNotSupported, ""},
           Row{"a card", "mmcblk0", DriveBus::kCard, false, 0, kNotSupported, ""},
           Row{"a card in a USB reader", "mmcblk0", DriveBus::kUsb, false, 0, kNotSupported, ""},
       }) {
    SCOPED_TRACE(row.what);
    script_.open_error = row.error;
    script_.replies = {Sector()};
    const DriveOpening opening = Open(row.name, row.bus, row.removable);
    EXPECT_EQ(opening.drive ? opening.drive->Read(DrivePage::kAtaIdentify).result : opening.result, row.result);
    EXPECT_EQ(Asked(), row.asked);
  }
  EXPECT_EQ(Open("sda", DriveBus::kAta).drive->Read(DrivePage::kNvmeHealth).result, kNotSupported);
  EXPECT_EQ(Asked(), "o");
  tree_.Write("/sys/block/sda/device/vendor", "ATA     \n");
  EXPECT_EQ(Open("sda", DriveBus::kScsi).drive->Read(DrivePage::kAtaIdentify).result, kDone)
      << "a SATA disk behind a SAS adapter";
  EXPECT_EQ(MakeDrives(Sysroot(tree_.root()), {})->Open({.path = "/dev/sda"}).result, kNotSupported);
}

TEST(DriveDeviceTest, AFileThatIsNoDriveKnowsNoCommand) {
  const DeviceOpening opening = OpenDriveDevice("/dev/null");
  ASSERT_TRUE(opening.device);
  for (const DeviceReply& reply : {opening.device->SendScsi(Bytes(16), {}), opening.device->SendNvme({}, {})}) {
    EXPECT_EQ(reply.error, ENOTTY);
    EXPECT_FALSE(reply.timed_out);
  }
  EXPECT_EQ(OpenDriveDevice("/dev/absent").error, ENOENT);
}

}  // namespace
}  // namespace platform
