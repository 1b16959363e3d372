#include "platform/linux/block_device_text.h"

#include <algorithm>
#include <cstdint>
#include <span>

#include "platform/ata_command.h"
#include "platform/drive_text.h"
#include "platform/text_scan.h"

namespace platform {
namespace {

// What the kernel and host adapters give as the vendor of drives that speak ATA (SAT-4, 10.2.2).
constexpr std::string_view kAtaVendor = "ATA";

// Whether a part of the path is `kind` and a number behind it, "ata3".
bool Passes(std::string_view path, std::string_view kind) {
  for (auto at = path.find(kind); at != path.npos; at = path.find(kind, at + 1)) {
    const auto behind = at + kind.size();
    const bool whole = (at == 0 || path[at - 1] == '/') && behind < path.size();
    if (whole && path[behind] >= '0' && path[behind] <= '9') return true;
  }
  return false;
}

}  // namespace

bool MayBeDrive(std::string_view name) {
  if (name.starts_with("sr") || name.starts_with("fd")) return false;
  // The boot and replay-protected areas of a memory card are devices beside it.
  return !name.starts_with("mmcblk") || (name.find("boot") == name.npos && name.find("rpmb") == name.npos);
}

std::string DeviceFile(std::string_view name) {
  std::string file = "/dev/" + std::string(name);
  std::ranges::replace(file, '!', '/');
  return file;
}

std::string NameOfDeviceFile(std::string_view file) {
  constexpr std::string_view kFolder = "/dev/";
  if (!file.starts_with(kFolder)) return {};
  std::string name(file.substr(kFolder.size()));
  std::ranges::replace(name, '/', '!');
  return name;
}

DriveBus BusOfBlockDevice(std::string_view name, std::string_view link) {
  // The outermost first: below USB a drive speaks SCSI, and below ATA too.
  if (Passes(link, "usb")) return DriveBus::kUsb;
  if (Passes(link, "ata")) return DriveBus::kAta;
  if (name.starts_with("nvme")) return DriveBus::kNvme;
  if (name.starts_with("mmcblk")) return DriveBus::kCard;
  // Virtual machines' own drives are below "virtio" and no SCSI host.
  return Passes(link, "host") ? DriveBus::kScsi : DriveBus::kOther;
}

DriveSpeech SpeechOf(const DriveListing& drive, std::string_view vendor) {
  if (drive.bus == DriveBus::kNvme) return DriveSpeech::kNvme;
  const bool scsi_disk = drive.path.starts_with("/dev/sd");
  const bool translated = drive.bus == DriveBus::kAta || (drive.bus == DriveBus::kUsb && !drive.removable) ||
                          (drive.bus == DriveBus::kScsi && TrimBlanks(vendor) == kAtaVendor);
  return scsi_disk && translated ? DriveSpeech::kAta : DriveSpeech::kNone;
}

std::string SerialOfPage80(std::string_view bytes) {
  constexpr std::size_t kHeader = 4;
  if (bytes.size() < kHeader || static_cast<std::uint8_t>(bytes[1]) != 0x80) return {};
  const std::size_t told = static_cast<std::uint8_t>(bytes[2]) << 8 | static_cast<std::uint8_t>(bytes[3]);
  std::string text(bytes.substr(kHeader, told));
  std::ranges::replace_if(
      text, [](char c) { return c < 0x20 || c >= 0x7F; }, ' ');
  return std::string(TrimBlanks(text));
}

std::string UsbDeviceFolder(std::string_view link) {
  // ".../usb2/2-1/2-1:1.0/host6/...": in a device lie its interfaces, each named by it.
  for (auto end = link.find('/'); end != link.npos; end = link.find('/', end + 1)) {
    const std::string_view folder = link.substr(0, end);
    const std::string_view name = folder.substr(folder.rfind('/') + 1);
    const bool has_interface = name.find('-') != name.npos && link.substr(end + 1).starts_with(std::string(name) + ':');
    if (has_interface) return std::string(folder);
  }
  return {};
}

std::optional<DriveNames> NamesOfPage89(std::string_view bytes) {
  constexpr std::size_t kCommand = 56;
  constexpr std::uint8_t kIdentifyDevice = 0xEC;
  constexpr std::size_t kIdentifyData = 60;
  constexpr std::size_t kFirmwareRevision = 2 * 23;  // words of IDENTIFY DEVICE (ACS-4)
  constexpr std::size_t kModelNumber = 2 * 27;
  const std::span page(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  if (page.size() < kIdentifyData + kAtaSectorSize || page[1] != 0x89 || page[kCommand] != kIdentifyDevice) return {};
  const auto identify = page.subspan(kIdentifyData);
  DriveNames names{AtaDriveText(identify.subspan(kModelNumber, 40)),
                   AtaDriveText(identify.subspan(kFirmwareRevision, 8))};
  if (names.model.empty()) return {};
  return names;
}

std::string ModelText(std::string_view vendor, std::string_view model) {
  const std::string_view maker = TrimBlanks(vendor);
  // The bus of virtual machines gives a number.
  std::string text(maker == kAtaVendor || maker.starts_with("0x") ? std::string_view() : maker);
  const std::string_view rest = TrimBlanks(model);
  if (!text.empty() && !rest.empty()) text += ' ';
  return text.append(rest);
}

std::optional<bool> RotatingOf(DriveBus bus, std::string_view rotational) {
  const auto number = ParseNumber(TrimBlanks(rotational));
  if (!number) return std::nullopt;
  if (*number == 0) return false;
  return bus == DriveBus::kAta || bus == DriveBus::kScsi ? std::optional(true) : std::nullopt;
}

std::uint64_t BytesOfSectors(std::string_view size) {
  constexpr std::uint64_t kUnit = 512;
  const std::uint64_t sectors = ParseNumber(TrimBlanks(size)).value_or(0);
  return sectors <= UINT64_MAX / kUnit ? sectors * kUnit : 0;
}

std::optional<DriveChange> DriveChangeOf(const BlockDeviceNotice& notice) {
  // There lie mappings, arrays and loops; a drive that joins the paths of NVMe is virtual too, but below its subsystem.
  if (!MayBeDrive(notice.name) || notice.path.starts_with("/devices/virtual/block/")) return std::nullopt;
  if (notice.action == "remove") return DriveChange::kDetached;
  const bool has_medium = notice.action == "change" && notice.media_change == "1";
  return notice.action == "add" || has_medium ? std::optional(DriveChange::kAttached) : std::nullopt;
}

}  // namespace platform
