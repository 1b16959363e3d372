// What goes to Windows' storage drivers with a control code and what comes back, as bytes: the protocol-specific query
// and the pass-through command for NVMe, and the pass-through and the older SMART code for ATA (winioctl.h, ntddscsi.h;
// 64 bits). A request's buffer is as large as the answer may be. Nothing of an answer is believed before it is checked
// against the bytes that came. Pure; any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/ata_command.h"
#include "platform/drives.h"

namespace platform {

/// The answer to a request that the system failed with the error `error` of GetLastError: kNotSupported where the
/// driver, or what it stands for, does not know the request. Drivers other than the system's own say that in several
/// ways, I/O errors among them.
DriveAnswer WindowsDriveFailure(std::uint32_t error);

/// What is asked: the drive as a whole, or the part of it that the system shows as a disk.
enum class NvmeScope { kController, kNamespace };

/// For IOCTL_STORAGE_QUERY_PROPERTY: STORAGE_PROPERTY_QUERY with STORAGE_PROTOCOL_SPECIFIC_DATA and room for the page.
/// Empty for what is no page of NVMe's.
std::vector<std::uint8_t> NvmePageRequest(DrivePage page, NvmeScope scope);

/// STORAGE_PROTOCOL_DATA_DESCRIPTOR with the page: kDone with all its bytes; kFailed (ERROR_INVALID_DATA) when it is
/// short, or places its data outside the bytes.
DriveAnswer DecodeNvmePage(DrivePage page, std::span<const std::uint8_t> answer);

/// For IOCTL_STORAGE_PROTOCOL_COMMAND: STORAGE_PROTOCOL_COMMAND with the command and room for the error's entry.
/// The drive gets whole seconds of `limit`. Empty for what is no action of NVMe's.
std::vector<std::uint8_t> NvmeActionRequest(DriveAction action, std::chrono::seconds limit);

/// What the command came to; that the code succeeded says only that it was passed on. Of kRefused the status is that of
/// the error's entry where there is one, else the driver's own.
DriveAnswer DecodeNvmeAction(std::span<const std::uint8_t> answer);

/// For IOCTL_ATA_PASS_THROUGH: ATA_PASS_THROUGH_EX and room for a sector where one comes in.
std::vector<std::uint8_t> AtaRequest(const AtaRegisters& command, bool sector, std::chrono::seconds limit);

struct AtaReply {
  DriveAnswer answer;                          ///< As of the page where a sector was to come in, else without bytes.
  std::optional<AtaRegisters> registers = {};  ///< Absent when the answer has none.
};
AtaReply DecodeAtaReply(std::span<const std::uint8_t> answer, bool sector);

/// For SMART_RCV_DRIVE_DATA, which takes the commands of ATA's pages: SENDCMDINPARAMS.
std::vector<std::uint8_t> SmartRequest(const AtaRegisters& command);

/// Of SENDCMDOUTPARAMS with one sector behind it.
inline constexpr std::size_t kSmartReplySize = 16 + kAtaSectorSize;

/// The sector, or what the driver's status says. `answer` may be shorter than kSmartReplySize, which then is a failure.
DriveAnswer DecodeSmartReply(std::span<const std::uint8_t> answer);

}  // namespace platform
