// Decoders of what Windows tells of a drive: STORAGE_DEVICE_DESCRIPTOR and STORAGE_ADAPTER_DESCRIPTOR, the answers of
// IOCTL_STORAGE_QUERY_PROPERTY for StorageDeviceProperty and StorageAdapterProperty (winioctl.h). Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/drives.h"

namespace platform {

/// Bus, model, firmware, serial number (decoded where the driver gives the hexadecimal digits of its characters) and
/// removable medium; the path and the rest stay as they are by default. A text that lies
/// outside the bytes is absent. Nothing when there are fewer bytes than the fixed part has, and for a drive that is
/// made of a file or of other drives.
std::optional<DriveListing> DecodeDriveDescriptor(std::span<const std::uint8_t> bytes);

/// The bus of the adapter that the drive is attached to: for a drive whose own descriptor names none. kOther when there
/// are too few bytes.
DriveBus DecodeAdapterBus(std::span<const std::uint8_t> bytes);

}  // namespace platform
