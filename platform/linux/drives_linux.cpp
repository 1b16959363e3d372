#include "platform/drives.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/linux/block_device_text.h"
#include "platform/linux/doors_linux.h"
#include "platform/text_scan.h"

namespace platform {
namespace {

class LinuxDrives final : public Drives {
 public:
  LinuxDrives(const Sysroot& root, DeviceOpener open) : root_(root), open_(std::move(open)) {}

  std::vector<DriveListing> List() override {
    std::vector<DriveListing> drives;
    for (const std::string& name : root_.FolderNames(kFolder)) {
      if (MayBeDrive(name) && IsDevice(Entry(name))) drives.push_back(Read(name, Entry(name)));
    }
    // By their numbers: nvme2n1 stands before nvme10n1.
    std::ranges::sort(drives, {}, [](const DriveListing& drive) { return std::pair(drive.path.size(), drive.path); });
    return drives;
  }

  DriveOpening Open(const DriveListing& drive) override {
    if (!open_) return {nullptr, DriveResult::kNotSupported};
    const std::string name = NameOfDeviceFile(drive.path);
    if (!MayBeDrive(name) || !IsDevice(Entry(name))) return {nullptr, DriveResult::kGone, ENODEV};
    // Names are taken over: the drive that was listed under this one may have gone, and another one come.
    const std::filesystem::path device = Entry(name) / "device";
    if (ReadModel(name, device, ReadAtaNames(device)) != drive.model ||
        ReadSerialNumber(Entry(name), drive.bus) != drive.serial_number) {
      return {nullptr, DriveResult::kGone, ENODEV};
    }
    const DriveSpeech speech = SpeechOf(drive, root_.ReadLine(Entry(name) / "device/vendor"));
    // Of NVMe, the folder "device" is the controller's, and its own "device" is what stands on the bus.
    const std::filesystem::path state =
        Entry(name) / (speech == DriveSpeech::kNvme ? "device/device" : "device") / "power/runtime_status";
    return OpenDrive(speech, drive.path, open_, [this, state] { return root_.ReadLine(state) == "suspended"; });
  }

 private:
  static constexpr char kFolder[] = "/sys/block";
  static std::filesystem::path Entry(const std::string& name) { return std::filesystem::path(kFolder) / name; }

  // A path of several to one NVMe namespace is hidden behind the drive that joins them.
  bool IsDevice(const std::filesystem::path& entry) const {
    return root_.IsFolder(entry / "device") && root_.ReadLine(entry / "hidden") != "1";
  }

  DriveListing Read(const std::string& name, const std::filesystem::path& entry) const {
    const std::filesystem::path device = entry / "device";
    const auto line = [&](const char* file) { return root_.ReadLine(device / file); };
    DriveListing drive{.path = DeviceFile(name), .bus = BusOfBlockDevice(name, root_.LinkTarget(entry))};
    const auto ata = ReadAtaNames(device);
    const char* const revision = IsCard(name) ? "fwrev" : name.starts_with("nvme") ? "firmware_rev" : "rev";
    drive.model = ReadModel(name, device, ata);
    drive.firmware_version = ata ? ata->firmware_version : line(revision);
    drive.serial_number = ReadSerialNumber(entry, drive.bus);
    drive.bytes = BytesOfSectors(root_.ReadLine(entry / "size"));
    drive.rotating = RotatingOf(drive.bus, root_.ReadLine(entry / "queue/rotational"));
    drive.removable = root_.ReadLine(entry / "removable") == "1";
    return drive;
  }

  // The drivers of cards, NVMe and SCSI name their files differently, whatever bus is on the way.
  static bool IsCard(const std::string& name) { return name.starts_with("mmcblk"); }

  std::string ReadModel(const std::string& name, const std::filesystem::path& device,
                        const std::optional<DriveNames>& ata) const {
    if (ata) return ata->model;
    if (IsCard(name)) return root_.ReadLine(device / "name");
    return ModelText(root_.ReadLine(device / "vendor"), root_.ReadLine(device / "model"));
  }

  std::optional<DriveNames> ReadAtaNames(const std::filesystem::path& device) const {
    const auto page = root_.Read(device / "vpd_pg89");
    return page ? NamesOfPage89(*page) : std::nullopt;
  }

  // SCSI has it as a page in bytes, NVMe and cards as a text, and the drives of virtual machines beside the folder.
  std::string ReadSerialNumber(const std::filesystem::path& entry, DriveBus bus) const {
    if (const auto page = root_.Read(entry / "device/vpd_pg80")) return SerialOfPage80(*page);
    // The kernel asks no bridge for the page, since many do not bear it.
    const std::string usb = bus == DriveBus::kUsb ? UsbDeviceFolder(root_.LinkTarget(entry)) : std::string();
    for (const std::filesystem::path& file :
         {entry / "device/serial", usb.empty() ? entry / "serial" : (entry.parent_path() / usb / "serial")}) {
      if (std::string text = root_.ReadLine(file); !text.empty()) return text;
    }
    return {};
  }

  const Sysroot root_;
  const DeviceOpener open_;  ///< None: no drive of this machine can be asked.
};

}  // namespace

std::unique_ptr<Drives> MakeDrives(const Sysroot& root, DeviceOpener open) {
  return std::make_unique<LinuxDrives>(root, std::move(open));
}

}  // namespace platform
