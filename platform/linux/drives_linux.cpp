#include "platform/drives.h"

#include <algorithm>
#include <utility>

#include "platform/linux/block_device_text.h"
#include "platform/linux/doors_linux.h"
#include "platform/linux/text_scan.h"

namespace platform {
namespace {

class LinuxDrives final : public Drives {
 public:
  explicit LinuxDrives(const Sysroot& root) : root_(root) {}

  std::vector<DriveListing> List() override {
    const std::filesystem::path folder = "/sys/block";
    std::vector<DriveListing> drives;
    for (const std::string& name : root_.FolderNames(folder)) {
      if (MayBeDrive(name) && IsDevice(folder / name)) drives.push_back(Read(name, folder / name));
    }
    // By their numbers: nvme2n1 stands before nvme10n1.
    std::ranges::sort(drives, {}, [](const DriveListing& drive) { return std::pair(drive.path.size(), drive.path); });
    return drives;
  }

 private:
  // A path of several to one NVMe namespace is hidden behind the drive that joins them.
  bool IsDevice(const std::filesystem::path& entry) const {
    const std::vector<std::string> folders = root_.FolderNames(entry);
    return std::ranges::find(folders, "device") != folders.end() && root_.ReadLine(entry / "hidden") != "1";
  }

  DriveListing Read(const std::string& name, const std::filesystem::path& entry) const {
    const std::filesystem::path device = entry / "device";
    const auto line = [&](const char* file) { return root_.ReadLine(device / file); };
    DriveListing drive{.path = DeviceFile(name), .bus = BusOfBlockDevice(name, root_.LinkTarget(entry))};
    // The drivers of cards, NVMe and SCSI name their files differently, whatever bus is on the way.
    const bool card = name.starts_with("mmcblk");
    drive.model = card ? line("name") : ModelText(line("vendor"), line("model"));
    drive.firmware_version = line(card ? "fwrev" : name.starts_with("nvme") ? "firmware_rev" : "rev");
    drive.bytes = BytesOfSectors(root_.ReadLine(entry / "size"));
    drive.rotating = RotatingOf(drive.bus, root_.ReadLine(entry / "queue/rotational"));
    drive.removable = root_.ReadLine(entry / "removable") == "1";
    return drive;
  }

  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Drives> MakeDrives(const Sysroot& root) {
  return std::make_unique<LinuxDrives>(root);
}

}  // namespace platform
