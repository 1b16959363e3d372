#include "client/storage/nvme_controller.h"

#include <cstddef>

#include "platform/drive_text.h"
#include "platform/little_endian.h"

namespace TVK {
namespace {

// NVM Express Base Specification 2.0c, 5.17.2.1, "Identify Controller Data Structure".
constexpr std::size_t kSize = 4096;
constexpr std::size_t kSerialNumber = 4;             // SN, 20 bytes
constexpr std::size_t kModelNumber = 24;             // MN, 40 bytes
constexpr std::size_t kFirmwareRevision = 64;        // FR, 8 bytes
constexpr std::size_t kOptionalAdminCommands = 256;  // OACS
constexpr std::uint16_t kDeviceSelfTest = 0x0010;

}  // namespace

std::optional<NvmeIdentity> DecodeNvmeController(std::span<const std::uint8_t> data) {
  if (data.size() != kSize) return std::nullopt;
  return NvmeIdentity{.serial_number = platform::DriveText(data.subspan(kSerialNumber, 20)),
                      .model = platform::DriveText(data.subspan(kModelNumber, 40)),
                      .firmware_version = platform::DriveText(data.subspan(kFirmwareRevision, 8)),
                      .self_test_supported = (platform::LittleEndianAt<std::uint16_t>(data, kOptionalAdminCommands) &
                                              kDeviceSelfTest) != 0};
}

}  // namespace TVK
