#include "platform/drives.h"

#include <algorithm>

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
    std::ranges::sort(drives, {}, &DriveListing::path);
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
    drive.model = drive.bus == DriveBus::kCard ? line("name") : ModelText(line("vendor"), line("model"));
    // The driver of NVMe and that of SCSI name it differently.
    drive.firmware_version = drive.bus == DriveBus::kNvme ? line("firmware_rev") : line("rev");
    drive.bytes = BytesOfSectors(root_.ReadLine(entry / "size"));
    if (const auto rotating = ParseNumber(root_.ReadLine(entry / "queue/rotational"))) drive.rotating = *rotating != 0;
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
