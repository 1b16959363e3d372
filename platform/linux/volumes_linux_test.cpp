// Mounted file systems, as the kernel tells of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/statvfs.h>

#include "platform/linux/mount_text.h"
#include "platform/local.h"
#include "platform/simulated/virtual_runtime.h"
#include "platform/volumes.h"
#include "testing/recorded_tree.h"

namespace platform {
namespace {

TEST(MountText, DecodesWholeLines) {
  const auto mounts = DecodeMountinfo(
      "36 35 98:0 /mnt1 /media/My\\040Stick\\134x\\089\\04 rw,noatime master:1 propagate_from:2 - ext3 /dev/ro\\011ot "
      "rw,errors=remount-ro\n"
      "37 36 0:31 / /ro ro - btrfs /dev/sda2 ssd,ro\n"
      "x 35 98:0 / /a rw - ext4 /dev/sda rw\n"
      "38 35 98:0 / /a rw shared:1 ext4 /dev/sda rw\n"
      "39 35 98:0 / a rw - ext4 /dev/sda rw\n"
      "40 35 98:0 / /a rw -\n"
      "\n"
      "41 35 8:1 / /b rw - vfat");
  ASSERT_EQ(mounts.size(), 3u);
  EXPECT_EQ(mounts[0].id, 36u);
  EXPECT_EQ(mounts[0].device, "98:0");
  EXPECT_EQ(mounts[0].point, "/media/My Stick\\x\\089\\04");
  EXPECT_EQ(mounts[0].type, "ext3");
  EXPECT_EQ(mounts[0].source, "/dev/ro\tot");
  EXPECT_FALSE(mounts[0].read_only) << "that it would be at an error";
  EXPECT_TRUE(mounts[1].read_only);
  EXPECT_EQ(mounts[2].type, "vfat");
}

TEST(MountText, TheWayToAMountTouchesNothingThatMayWait) {
  const auto mounts = DecodeMountinfo(
      "1 0 8:1 / / rw - ext4 /dev/sda1 rw\n"
      "2 1 0:9 / /net rw - nfs4 server:/x rw\n"
      "3 2 8:2 / /net/disk rw - ext4 /dev/sda2 rw\n"
      "4 1 8:2 / /network rw - ext4 /dev/sda2 rw\n"
      "5 1 0:7 / /boot rw - autofs systemd-1 rw\n"
      "6 5 8:3 / /boot rw - vfat /dev/sda3 rw\n"
      "7 6 8:4 / /boot/efi rw - vfat /dev/sda4 rw\n"
      "8 1 0:8 / /home rw - tmpfs tmpfs rw\n"
      "9 8 8:5 / /home/me rw - ext4 /dev/sda5 rw\n"
      "10 9 8:5 / /home/me rw - ext4 /dev/sda5 rw\n");
  const bool expected[] = {true, true, false, true, false, true, true, true, false, true};
  ASSERT_EQ(mounts.size(), std::size(expected));
  for (std::size_t i = 0; i < mounts.size(); ++i)
    EXPECT_EQ(IsReachable(mounts, i), expected[i]) << mounts[i].point << ' ' << mounts[i].id;
}

TEST(MountText, TellsWhatHoldsVolumesOfTheSystem) {
  for (const auto& [point, system] : {std::pair("/", true),
                                      {"/usr", true},
                                      {"/usr/local", false},
                                      {"/boot", true},
                                      {"/boot/efi", true},
                                      {"/bootable", false},
                                      {"/home", false}}) {
    EXPECT_EQ(IsSystemPoint(point), system) << point;
  }
  for (const auto& [link, is_partition, name, drive] :
       {std::tuple("../../devices/pci0000:00/ata1/host0/block/sda/sda1", true, "sda1", "sda"),
        {"../../block/devices/virtual/block/dm-0", false, "dm-0", "dm-0"},
        {"../../devices/pci0000:00/nvme/nvme0/nvme0n1/nvme0n1p2", true, "nvme0n1p2", "nvme0n1"},
        {"../../devices/pci0000:00/nvme/nvme0/nvme0n1", false, "nvme0n1", "nvme0n1"},
        {"nvme0n1p1", true, "", ""},
        {"..", false, "", ""},
        {"", false, "", ""}}) {
    const BlockDevice device = BlockDeviceOfLink(link, is_partition);
    EXPECT_EQ(device.name, name) << link;
    EXPECT_EQ(device.drive, drive) << link;
  }
  for (const auto& [drive, may] : {std::pair("sda", true),
                                   {"dm-0", true},
                                   {"md127", true},
                                   {"", false},
                                   {"loop7", false},
                                   {"zram0", false},
                                   {"nbd0", false},
                                   {"sr0", false}}) {
    EXPECT_EQ(MayHoldVolume(drive), may) << drive;
  }
}

TEST(MountText, SumsErrors) {
  EXPECT_EQ(SumOfErrors("write_errs 1\nread_errs 20\ngeneration_errs 300\n"), 321u);
  for (const char* const text : {"", "write_errs\n", "write_errs 1\nread_errs many\n", "write_errs -1\n"}) {
    EXPECT_FALSE(SumOfErrors(text)) << text;
  }
}

TEST(LinuxVolumesTest, ListsEachVolumeOfARecordedSystemOnce) {
  const RecordedTree tree{{"/proc/self/mountinfo",
                           "1 0 254:1 / / ro - ext4 /dev/mapper/root rw,relatime\n"
                           "2 1 254:1 /var /var rw - ext4 /dev/mapper/root rw,relatime\n"
                           "3 1 8:1 / /boot/efi rw - vfat /dev/sda1 rw\n"
                           "4 1 7:0 / /snap/core rw - squashfs /dev/loop0 ro\n"
                           "5 1 0:40 / /mnt/nas rw - nfs4 nas:/x rw\n"
                           "6 1 0:41 / /run/user/fuse rw - fuse /dev/fuse rw\n"
                           "7 1 0:42 /@data /data rw - btrfs /dev/sdb rw\n"
                           "8 1 0:42 /@more /more rw - btrfs /dev/sdb rw\n"
                           "9 1 8:33 / /media/stick rw - exfat /dev/sdc1 ro\n"
                           "10 1 179:1 / /media/card rw - vfat /dev/mmcblk0p1 rw\n"
                           "11 1 9:99 / /gone rw - ext4 /dev/gone rw\n"
                           "12 1 259:0 / /fast rw - ext4 /dev/nvme0n1 rw\n"
                           "13 1 259:2 / /boot rw - ext4 /dev/nvme1n1p1 rw\n"},
                          {"/run/udev/data/b254:1", "S:mapper/root\nE:ID_FS_UUID=UUID-ROOT\nE:ID_FS_UUID_ENC=x\n"},
                          {"/run/udev/data/b259:2", "E:ID_FS_UUID=UUID-BOOT\n"},
                          {"/sys/fs/ext4/nvme1n1p1/errors_count", "3\n"},
                          {"/run/udev/data/b8:16", "E:ID_FS_UUID=UUID-DATA\n"},
                          {"/sys/fs/ext4/dm-1/errors_count", "12\n"},
                          {"/sys/fs/btrfs/UUID-OTHER/devices/sdz/x", ""},
                          {"/sys/fs/btrfs/UUID-DATA/devices/sdb/x", ""},
                          {"/sys/fs/btrfs/UUID-DATA/devinfo/1/error_stats", "write_errs 1\nread_errs 2\n"},
                          {"/sys/fs/btrfs/UUID-DATA/devinfo/2/error_stats", "write_errs 4\n"}};
  const auto device = [&](const std::string& number, const std::string& path,
                          std::initializer_list<RecordedTree::File> files = {}) {
    const std::string folder = "/sys/devices/" + path;
    tree.Write(folder + "/dev", number + "\n");
    for (const auto& [file, text] : files)
      tree.Write(folder + '/' + file, text + "\n");
    const std::string name = path.substr(path.rfind('/') + 1);
    for (const auto& [links, link] : {std::pair("sys/dev/block", number), {"sys/class/block", name}}) {
      std::filesystem::create_directories(tree.root() / links);
      std::filesystem::create_symlink("../../devices/" + path, tree.root() / links / link);
    }
  };
  device("254:0", "virtual/block/dm-0", {{"dm/uuid", "CRYPT-LUKS2-1"}, {"slaves/sda2/x", ""}});
  device("254:1", "virtual/block/dm-1", {{"dm/uuid", "LVM-1"}, {"slaves/dm-0/x", ""}});
  device("8:0", "pci0/ata1/host0/block/sda", {{"removable", "0"}});
  device("8:1", "pci0/ata1/host0/block/sda/sda1", {{"partition", "1"}});
  device("8:2", "pci0/ata1/host0/block/sda/sda2", {{"partition", "1"}});
  device("8:16", "pci0/ata2/host1/block/sdb", {{"removable", "0"}, {"slaves/dm-9/x", ""}});
  device("8:32", "pci0/usb1/1-1/host2/block/sdc", {{"removable", "0"}});
  device("8:33", "pci0/usb1/1-1/host2/block/sdc/sdc1", {{"partition", "1"}});
  device("179:0", "pci0/mmc_host/mmc0/block/mmcblk0", {{"removable", "0"}, {"device/type", "SD"}});
  device("179:1", "pci0/mmc_host/mmc0/block/mmcblk0/mmcblk0p1", {{"partition", "1"}});
  device("259:0", "pci0/nvme/nvme0/nvme0n1", {{"slaves/dm-9/x", ""}});
  // One that several paths lead to.
  device("259:1", "virtual/nvme-subsystem/nvme-subsys1/nvme1n1", {{"removable", "0"}});
  device("259:2", "virtual/nvme-subsystem/nvme-subsys1/nvme1n1/nvme1n1p1", {{"partition", "1"}});
  device("7:0", "virtual/block/loop0");
  device("254:9", "virtual/block/dm-9", {{"dm/uuid", "mpath-1"}, {"slaves/dm-9/x", "in circles"}});

  const VirtualRuntime runtime;
  const auto machine = OpenLocalMachine({.sysroot = tree.root()}, runtime.clock());
  const std::vector<Volume> expected = {
      {.id = "UUID-ROOT", .role = VolumeRole::kSystem, .file_system = "ext4", .encrypted = true, .errors = 12},
      {.id = "sda1", .role = VolumeRole::kSystem, .file_system = "vfat", .encrypted = false},
      {.id = "UUID-DATA", .role = VolumeRole::kData, .file_system = "btrfs", .encrypted = false, .errors = 7},
      {.id = "sdc1", .role = VolumeRole::kRemovable, .file_system = "exfat", .read_only = true, .encrypted = false},
      {.id = "mmcblk0p1", .role = VolumeRole::kRemovable, .file_system = "vfat", .encrypted = false},
      {.id = "nvme0n1", .role = VolumeRole::kData, .file_system = "ext4", .encrypted = false},
      {.id = "UUID-BOOT", .role = VolumeRole::kSystem, .file_system = "ext4", .encrypted = false, .errors = 3},
  };
  EXPECT_EQ(machine->volumes().List(), expected);
}

TEST(LinuxVolumesTest, MeasuresThoseOfThisComputer) {
  const VirtualRuntime runtime;
  std::vector<std::uint64_t> of_the_system;  // sizes, with what is kept back for root
  for (const char* const point : {"/", "/usr", "/boot", "/boot/efi", "/efi"}) {
    struct statvfs space = {};
    if (statvfs(point, &space) == 0) of_the_system.push_back(std::uint64_t{space.f_blocks} * space.f_frsize);
  }
  for (const Volume& volume : OpenLocalMachine({}, runtime.clock())->volumes().List()) {
    SCOPED_TRACE(volume.file_system);
    EXPECT_FALSE(volume.id.empty());
    if (volume.role == VolumeRole::kSystem) {
      ASSERT_TRUE(volume.space);
      EXPECT_THAT(of_the_system, testing::Contains(volume.space->bytes));
    }
    if (volume.space) {
      EXPECT_LE(volume.space->free_bytes, volume.space->bytes);
      EXPECT_GE(volume.space->bytes, 1u << 20);
    }
  }
}

}  // namespace
}  // namespace platform
