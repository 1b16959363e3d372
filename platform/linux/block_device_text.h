// Decoder of what /sys/block tells of drives (the kernel's Documentation/ABI/stable/sysfs-block). Pure functions; any
// thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/drives.h"
#include "platform/linux/drive_linux.h"
#include "platform/system_event.h"

namespace platform {

/// Whether a name of /sys/block can be that of a drive as platform::Drives means it; of the ones that can, those
/// without a folder "device" are none.
bool MayBeDrive(std::string_view name);

/// The file of the device, and the name of the device of a file; the kernel writes '!' for a '/' in its name.
std::string DeviceFile(std::string_view name);
std::string NameOfDeviceFile(std::string_view file);

/// From the name and what the link /sys/block/NAME says: the way through the buses. Empty: by the name alone.
DriveBus BusOfBlockDevice(std::string_view name, std::string_view link);

/// In which commands a drive can be asked for its pages; `vendor` is what its file "vendor" says. Behind USB those are
/// disks in enclosures: sticks and card readers, whose media are removable, know nothing of them, and some stop working
/// when they are asked.
DriveSpeech SpeechOf(const DriveListing& drive, std::string_view vendor);

/// The serial number from the file "vpd_pg80" (Unit Serial Number, SPC-5, 7.7.19): printable ASCII; empty when it tells
/// none.
std::string SerialOfPage80(std::string_view bytes);

/// The folder of the USB device that a drive belongs to, from what its link /sys/block/NAME says; empty without one.
std::string UsbDeviceFolder(std::string_view link);

struct DriveNames {
  std::string model = {};
  std::string firmware_version = {};
};

/// From the file "vpd_pg89" (ATA Information, SAT-4, 12.4.2), which holds what a drive that speaks ATA said of itself
/// as it was attached; SCSI's own files have room for a part of it. Nothing when it tells none.
std::optional<DriveNames> NamesOfPage89(std::string_view bytes);

/// The model of a drive whose files "vendor" and "model" say this. The vendor of drives that speak ATA is "ATA", which
/// says nothing.
std::string ModelText(std::string_view vendor, std::string_view model);

/// From the file "queue/rotational". A one is what the kernel says, too, while it does not know, as of sticks, bridges
/// and the disks of virtual machines: it counts only where drives tell it.
std::optional<bool> RotatingOf(DriveBus bus, std::string_view rotational);

/// From the file "size", which counts units of 512 bytes whatever the drive's own; 0 when it says none, or too many.
std::uint64_t BytesOfSectors(std::string_view size);

/// What the kernel sends of a block device (its Documentation/ABI, uevent; udev(7) has the words).
struct BlockDeviceNotice {
  std::string_view name = {};
  std::string_view path = {};  ///< Below /sys, "/devices/...".
  std::string_view action = {};
  std::string_view media_change = {};  ///< Its property DISK_MEDIA_CHANGE.
};

/// Nothing for what is no drive as platform::Drives means it, and for news that make none come or go.
std::optional<DriveChange> DriveChangeOf(const BlockDeviceNotice& notice);

}  // namespace platform
