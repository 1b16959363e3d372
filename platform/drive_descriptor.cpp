#include "platform/drive_descriptor.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <string>
#include <system_error>

#include "platform/drive_text.h"
#include "platform/little_endian.h"

namespace platform {
namespace {

// The members of the structure. Offsets in it count from its begin; 0 stands for a text that the drive does not have.
constexpr std::size_t kRemovableMedia = 10;
constexpr std::size_t kVendorIdOffset = 12;
constexpr std::size_t kProductIdOffset = 16;
constexpr std::size_t kProductRevisionOffset = 20;
constexpr std::size_t kSerialNumberOffset = 24;
constexpr std::size_t kBusType = 28;
constexpr std::size_t kFixedSize = 36;

// The text ends with a zero or with the bytes.
std::string Text(std::span<const std::uint8_t> bytes, std::size_t where) {
  const std::uint32_t begin = LittleEndianAt<std::uint32_t>(bytes, where);
  if (begin < kFixedSize || begin >= bytes.size()) return {};
  const auto text = bytes.subspan(begin);
  const auto end = std::ranges::find(text, 0);
  return DriveText(text.first(static_cast<std::size_t>(end - text.begin())));
}

// Some drivers give the 20 characters of an ATA serial number as hexadecimal digits, and in the order of the drive's
// words, in which each two characters are swapped. No drive has a number of its own that long.
std::string SerialNumber(const std::string& text) {
  constexpr std::size_t kCharacters = 20;
  if (text.size() != 2 * kCharacters) return text;
  std::array<std::uint8_t, kCharacters> number{};
  for (std::size_t i = 0; i < kCharacters; ++i) {
    const char* const digits = text.data() + 2 * i;
    std::uint8_t& byte = number[i ^ 1];
    const auto [end, error] = std::from_chars(digits, digits + 2, byte, 16);
    if (error != std::errc() || end != digits + 2 || byte < 0x20 || byte >= 0x7F) return text;
  }
  return DriveText(number);
}

// STORAGE_BUS_TYPE.
DriveBus BusOf(std::uint32_t type) {
  switch (type) {
    case 0x02:  // Atapi
    case 0x03:  // Ata
    case 0x0B:  // Sata
      return DriveBus::kAta;
    case 0x07:
      return DriveBus::kUsb;
    case 0x01:  // Scsi
    case 0x06:  // Fibre
    case 0x08:  // RAID: what the adapter hides is unknown, it speaks SCSI
    case 0x09:  // iSCSI
    case 0x0A:  // Sas
    case 0x13:  // Ufs, which speaks SCSI too
      return DriveBus::kScsi;
    case 0x0C:  // Sd
    case 0x0D:  // Mmc
      return DriveBus::kCard;
    case 0x11:
      return DriveBus::kNvme;
    default:
      return DriveBus::kOther;
  }
}

}  // namespace

std::optional<DriveListing> DecodeDriveDescriptor(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < kFixedSize) return std::nullopt;
  constexpr std::uint32_t kFileBackedVirtual = 0x0F;
  constexpr std::uint32_t kSpaces = 0x10;
  const std::uint32_t bus = LittleEndianAt<std::uint32_t>(bytes, kBusType);
  if (bus == kFileBackedVirtual || bus == kSpaces) return std::nullopt;
  DriveListing drive{.path = {}, .bus = BusOf(bus)};
  drive.removable = bytes[kRemovableMedia] != 0;
  drive.model = Text(bytes, kVendorIdOffset);
  const std::string product = Text(bytes, kProductIdOffset);
  // Some drivers give the bus for the maker, which says nothing.
  if (drive.model == "ATA" || drive.model == "NVMe") drive.model.clear();
  if (!drive.model.empty() && !product.empty()) drive.model += ' ';
  drive.model += product;
  drive.firmware_version = Text(bytes, kProductRevisionOffset);
  drive.serial_number = SerialNumber(Text(bytes, kSerialNumberOffset));
  return drive;
}

DriveBus DecodeAdapterBus(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kAdapterBusType = 24;  // one byte, unlike the drive's
  return bytes.size() > kAdapterBusType ? BusOf(bytes[kAdapterBusType]) : DriveBus::kOther;
}

}  // namespace platform
