#include <gtest/gtest.h>

#include <cerrno>

#include "platform/drives.h"
#include "platform/firmware.h"
#include "platform/local.h"
#include "platform/memory.h"
#include "platform/processors.h"
#include "platform/region.h"
#include "platform/settings.h"
#include "platform/simulated/virtual_runtime.h"
#include "platform/system_facts.h"
#include "testing/recorded_tree.h"
#include "testing/smbios_builder.h"

namespace platform {
namespace {

using testing_support::Bytes;
using testing_support::Table;
using namespace std::chrono_literals;

// What SCSI tells of an ATA drive (page 89h) "Litware HDD 2TB-2026" of the firmware "FWCC43", which said it by
// `command`.
std::string AtaInformation(char command) {
  std::string page(572, '\0');
  page[1] = '\x89';
  page[56] = command;
  page.replace(60 + 46, 8, "WFCC34  ");
  page.replace(60 + 54, 40, "iLwtra eDH DT2-B0262" + std::string(20, ' '));
  return page;
}

class LinuxMachineTest : public testing::Test {
 protected:
  VirtualRuntime runtime_;
  RecordedTree tree_;
  std::unique_ptr<Machine> machine_ = OpenLocalMachine({.sysroot = tree_.root()}, runtime_.clock());
};

TEST_F(LinuxMachineTest, MeasuresTheLoadFromSampleToSample) {
  EXPECT_EQ(machine_->processors().OpenUtility().error, ENOENT);
  tree_.Write("/proc/stat", "intr 0\n");
  EXPECT_EQ(machine_->processors().OpenUtility().error, EBADMSG);
  tree_.Write("/proc/stat", "cpu 100 0 0 900 0 0 0 0 0 0\n");
  const ProcessorLoadOpening opening = machine_->processors().OpenUtility();
  ASSERT_TRUE(opening.reader);
  const auto sample = [&](const char* stat, std::chrono::milliseconds later) {
    tree_.Write("/proc/stat", stat);
    runtime_.AdvanceBy(later);
    return opening.reader->Sample();
  };
  using Sample = std::optional<std::int32_t>;
  EXPECT_EQ(sample("cpu 105 0 0 905 0 0 0 0 0 0\n", 99ms), Sample()) << "open for too short a time";
  EXPECT_EQ(sample("cpu 130 0 0 910 0 0 0 0 0 0\n", 1ms), 75) << "since the opening";
  EXPECT_EQ(sample("cpu 130 0 0 990 0 0 0 0 0 0\n", 99ms), 75) << "the last one, without a reading";
  EXPECT_EQ(sample("cpu 130 0 0 980 30 0 0 0 0 0\n", 1ms), 0);
  EXPECT_EQ(sample("cpu 10 0 0 10 0 0 0 0 0 0\n", 1s), Sample()) << "counters that went backwards";
  EXPECT_EQ(sample("cpu 20 0 0 20 0 0 0 0 0 0\n", 1s), 50) << "and on from there";
  EXPECT_EQ(sample("garbage\n", 1s), Sample());
  EXPECT_EQ(sample("cpu 30 0 0 50 0 0 0 0 0 0\n", 1s), 25);
}

TEST_F(LinuxMachineTest, GivesTheSmbiosTableTheHeaderOfWindows) {
  const Table table = Table().Add(testing_support::MemoryArray()).End();
  const auto write = [&](const char* name, const Bytes& bytes) {
    tree_.Write(std::string("/sys/firmware/dmi/tables/") + name, {bytes.begin(), bytes.end()});
  };
  std::uint32_t error = 0;
  EXPECT_TRUE(machine_->firmware().ReadSmbios(&error).empty());
  EXPECT_EQ(error, std::uint32_t{ENOENT});
  write("DMI", table.bytes());
  write("smbios_entry_point", Table::EntryPoint64(4096));
  EXPECT_EQ(machine_->firmware().ReadSmbios(), table.Rsmb());
  write("smbios_entry_point", {'_', 'S', 'M', '_', 0});
  EXPECT_TRUE(machine_->firmware().ReadSmbios(&error).empty());
  EXPECT_EQ(error, std::uint32_t{EBADMSG});
}

TEST_F(LinuxMachineTest, ListsTheDrivesOfARecordedSystem) {
  const auto link = [&](const std::string& name, const std::string& target) {
    std::filesystem::create_directories(tree_.root() / "sys/block");
    std::filesystem::create_directory_symlink(target + "/block/" + name, tree_.root() / "sys/block" / name);
    return "/sys/block/" + target + "/block/" + name + "/";
  };
  const auto write = [&](const std::string& folder, std::initializer_list<RecordedTree::File> files) {
    for (const auto& [file, text] : files)
      tree_.Write(folder + file, text + "\n");
  };
  const std::string pci = "../devices/pci0000:00/0000:00:1f.2/";
  write(link("sda", pci + "ata1/host0/target0:0:0/0:0:0:0"), {{"size", "3907029168"},
                                                              {"removable", "0"},
                                                              {"queue/rotational", "1"},
                                                              {"device/vendor", "ATA     "},
                                                              {"device/model", "Litware HDD 2TB "},
                                                              {"device/rev", "CC43"},
                                                              {"device/serial", "of another driver"},
                                                              {"device/vpd_pg80", {"\0\x80\0\x06  WX\x01\0X", 11}},
                                                              {"device/vpd_pg89", AtaInformation('\xEC')}});
  write(link("sdb", pci + "usb2/2-1/2-1:1.0/host6/target6:0:0/6:0:0:0"),
        {{"size", "0"}, {"removable", "1"}, {"device/vendor", "Litware "}, {"device/model", "Card Reader"}});
  write("/sys/block/" + pci + "usb2/2-1/", {{"serial", "USB1"}});
  write(link("sdc", pci + "host7/port-7:0/end_device-7:0/target7:0:0/7:0:0:0"),
        {{"device/model", "SAS"}, {"device/vpd_pg89", AtaInformation('\xA1')}});
  write(link("nvme0n1", pci + "nvme/nvme0"), {{"size", "1000215216"},
                                              {"queue/rotational", "0"},
                                              {"device/model", "Contoso NVMe"},
                                              {"device/firmware_rev", "1.0"},
                                              {"device/serial", "NV 1 "},
                                              {"hidden", "0"}});
  write(link("nvme0c0n1", pci + "nvme/nvme0"), {{"hidden", "1"}, {"device/model", "Contoso NVMe"}});
  write(link("mmcblk0", pci + "mmc_host/mmc0/mmc0:0001"), {{"device/name", "CARD64"},
                                                           {"device/fwrev", "0x7"},
                                                           {"device/rev", "0x8"},
                                                           {"device/fwrev", "0x7"},
                                                           {"device/rev", "0x8"},
                                                           {"size", "18446744073709551615"}});
  write(link("mmcblk0boot0", pci + "mmc_host/mmc0/mmc0:0001"), {{"device/name", "CARD64"}});
  write(link("mmcblk1", pci + "usb1/1-4/1-4:1.0/mmc_host/mmc1/mmc1:0002"),
        {{"device/name", "CARD32"}, {"queue/rotational", "1"}});
  write(link("vda", pci + "virtio1"), {{"device/vendor", "0x1af4"}, {"serial", "VIRT"}, {"size", "8"}});
  write(link("sr0", pci + "ata2/host1/target1:0:0/1:0:0:0"), {{"device/model", "DVD"}});
  write(link("loop0", "../devices/virtual"), {{"size", "8"}});
  write("/sys/block/cciss!c0d0/", {{"device/model", "Array"}, {"size", "2"}});

  using Bus = DriveBus;
  const std::vector<DriveListing> expected = {
      {.path = "/dev/sda",
       .bus = Bus::kAta,
       .model = "Litware HDD 2TB-2026",
       .firmware_version = "FWCC43",
       .serial_number = "WX",
       .bytes = 2'000'398'934'016,
       .rotating = true},
      {.path = "/dev/sdb",
       .bus = Bus::kUsb,
       .model = "Litware Card Reader",
       .serial_number = "USB1",
       .removable = true},
      {.path = "/dev/sdc", .bus = Bus::kScsi, .model = "SAS"},
      {.path = "/dev/vda", .bus = Bus::kOther, .serial_number = "VIRT", .bytes = 4096},
      {.path = "/dev/mmcblk0", .bus = Bus::kCard, .model = "CARD64", .firmware_version = "0x7"},
      {.path = "/dev/mmcblk1", .bus = Bus::kUsb, .model = "CARD32"},
      {.path = "/dev/nvme0n1",
       .bus = Bus::kNvme,
       .model = "Contoso NVMe",
       .firmware_version = "1.0",
       .serial_number = "NV 1",
       .bytes = 512'110'190'592,
       .rotating = false},
      {.path = "/dev/cciss/c0d0", .bus = Bus::kOther, .model = "Array", .bytes = 1024},
  };
  EXPECT_EQ(machine_->drives().List(), expected);
}

TEST_F(LinuxMachineTest, ReadsTheFactsOfARecordedSystem) {
  for (const auto& [file, text] : std::initializer_list<RecordedTree::File>{
           {"/etc/os-release", "NAME=Debian\nVERSION_ID=\"12\"\nVERSION=\"12 (bookworm)\"\nPRETTY_NAME=Debian-12\n"},
           {"/etc/locale.conf", "LANG=de_AT.UTF-8\nLC_MESSAGES=en_GB.UTF-8\n"},
           {"/etc/machine-id", "00112233445566778899aabbccddeeff\n"},
           {"/proc/stat", "cpu 1 2 3 4\nbtime 1767222000\n"},
           {"/proc/sys/kernel/random/boot_id", "01234567-89ab-cdef-0123-456789abcdef\n"},
           {"/proc/meminfo", "MemTotal: 1000 kB\nMemAvailable: 400 kB\n"},
           {"/sys/class/dmi/id/sys_vendor", "Contoso \n"},
           {"/sys/class/dmi/id/ec_firmware_release", "1.9\n"},
           {"/sys/class/dmi/id/board_vendor", "Litware\n"},
           {"/sys/class/dmi/id/board_name", "NB14G3\n"},
           {"/sys/class/dmi/id/board_version", "Rev 2\n"}})
    tree_.Write(file, text);
  std::filesystem::create_symlink("/usr/share/zoneinfo/Europe/Vienna", tree_.root() / "etc" / "localtime");

  const OperatingSystemFacts system = machine_->system().ReadOperatingSystem();
  EXPECT_EQ(system.name, "Debian");
  EXPECT_EQ(system.version, "12");
  EXPECT_EQ(system.display_language, "en-GB");
  EXPECT_EQ(system.update_title, "12 (bookworm)");
  EXPECT_EQ(system.update_description, "Debian-12");
  const RegionFacts region = machine_->region().ReadFacts();
  EXPECT_EQ(region.nation, "AT");
  EXPECT_EQ(region.locale_name, "de-AT");
  EXPECT_EQ(region.time_zone, "Europe/Vienna");
  EXPECT_EQ(machine_->system().ReadInstallationId(), "00112233445566778899aabbccddeeff");
  EXPECT_EQ(machine_->system().ReadBootTime(), 1767222000);
  EXPECT_EQ(machine_->system().ReadBootId(), "01234567-89ab-cdef-0123-456789abcdef");
  EXPECT_EQ(machine_->memory().ReadStatus()->load_percent, 60u);
  EXPECT_TRUE(machine_->memory().ReadErrors().empty());
  tree_.Write("/sys/devices/system/edac/mc/mc0/ce_count", "3\n");
  tree_.Write("/sys/devices/system/edac/mc/mc0/ue_count", "1\n");
  tree_.Write("/sys/devices/system/edac/mc/mc2/ce_count", "7\n");
  tree_.Write("/sys/devices/system/edac/mc/power/control", "auto\n");
  EXPECT_EQ(machine_->memory().ReadErrors(), (std::vector<MemoryErrors>{{"mc0", 3, 1}, {"mc2", 7, 0}}));
  const FirmwareFacts firmware = machine_->firmware().ReadFacts();
  EXPECT_EQ(firmware.manufacturer, "Contoso");
  EXPECT_EQ(firmware.ec_release, "1.9");
  EXPECT_EQ(firmware.board_manufacturer + firmware.board_product + firmware.board_version, "LitwareNB14G3Rev 2");

  tree_.Remove("/etc/os-release");
  tree_.Write("/usr/lib/os-release", "NAME=Fedora\n");
  EXPECT_EQ(machine_->system().ReadOperatingSystem().name, "Fedora");
}

TEST_F(LinuxMachineTest, AnEmptyTreeTellsNothing) {
  std::uint32_t error = 0;
  EXPECT_FALSE(machine_->memory().ReadStatus(&error));
  EXPECT_EQ(error, std::uint32_t{ENOENT});
  tree_.Write("/proc/meminfo", "nonsense");
  EXPECT_FALSE(machine_->memory().ReadStatus(&error));
  EXPECT_EQ(error, std::uint32_t{EBADMSG});
  EXPECT_EQ(machine_->system().ReadOperatingSystem().name, "");
  EXPECT_EQ(machine_->region().ReadFacts().time_zone, "");
  EXPECT_EQ(machine_->system().ReadInstallationId(), "");
  EXPECT_FALSE(machine_->system().ReadBootTime());
  EXPECT_EQ(machine_->system().ReadBootId(), "");
}

TEST_F(LinuxMachineTest, TellsOfChangesInEachFileOfTheSettings) {
  const auto runtime = MakeRealRuntime({});
  for (const auto& [file, text, expected] :
       {std::tuple("/usr/lib/os-release", "VERSION_ID=1\n", "1"), std::tuple("/etc/os-release", "VERSION_ID=2\n", "2"),
        std::tuple("/etc/locale.conf", "LANG=en_FR.UTF-8\n", "en-FR"),
        std::tuple("/etc/default/locale", "LANG=en_DE.UTF-8\n", "en-DE")}) {
    SCOPED_TRACE(file);
    const auto told = runtime->MakeEvent(EventReset::kAuto);
    const auto watcher =
        machine_->settings().OpenWatcher(*runtime, {.changed = [&](Setting) { told->Set(); }, .trouble = {}});
    ASSERT_TRUE(watcher);
    const Setting setting = expected[1] == '\0' ? Setting::kBuild : Setting::kLocaleName;
    ASSERT_EQ(watcher->Add(setting), 0u);
    tree_.Write(file, text);
    std::string value;
    do {
      ASSERT_EQ(runtime->Wait(*told, 20s), 0u);
    } while (watcher->Read(setting, value) != 0 || value != expected);
  }
}

TEST_F(LinuxMachineTest, PrefersTheUserAtTheScreen) {
  EXPECT_EQ(machine_->system().ReadLoggedInUserId(), "");
  tree_.Write("/run/systemd/sessions/1", "UID=1000\nACTIVE=1\nCLASS=user\n");
  EXPECT_EQ(machine_->system().ReadLoggedInUserId(), "1000");
  tree_.Write("/run/systemd/sessions/c2", "UID=1001\nACTIVE=1\nCLASS=user\nSEAT=seat0\n");
  EXPECT_EQ(machine_->system().ReadLoggedInUserId(), "1001");
}

}  // namespace
}  // namespace platform
