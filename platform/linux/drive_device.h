// The device file of a drive: commands go in, bytes come out. The one place that asks the kernel for them.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/drives.h"
#include "platform/nvme_command.h"

namespace platform {

/// What the kernel and the drive said to one command.
struct DeviceReply {
  int error = 0;                         ///< errno of the call; what follows `timed_out` then means nothing.
  bool timed_out = false;                ///< It failed and took all the time that it was given.
  bool gone = false;                     ///< The kernel reached no such drive.
  bool failed = false;                   ///< The way to the drive failed otherwise, as by a reset of the bus.
  std::size_t bytes = 0;                 ///< That came in.
  std::uint32_t status = 0;              ///< What SCSI or NVMe (without its phase bit) ended it with; 0 is good.
  std::vector<std::uint8_t> sense = {};  ///< Of a SCSI command; empty: none came.
};

/// An opened device file. One thread at a time. Each command is given kDriveCommandLimit.
class DriveDevice {
 public:
  DriveDevice() = default;
  DriveDevice(const DriveDevice&) = delete;
  DriveDevice& operator=(const DriveDevice&) = delete;
  virtual ~DriveDevice() = default;

  /// A SCSI command that moves bytes into `in`, or none when it is empty.
  virtual DeviceReply SendScsi(std::span<const std::uint8_t> command, std::span<std::uint8_t> in) = 0;
  /// An admin command of NVMe; `in` is as long as it says.
  virtual DeviceReply SendNvme(const NvmeCommand& command, std::span<std::uint8_t> in) = 0;
};

struct DeviceOpening {
  std::unique_ptr<DriveDevice> device;  ///< Null on failure.
  int error = 0;                        ///< errno then.
};
using DeviceOpener = std::function<DeviceOpening(const std::string& path)>;

/// Opens the device file for reading, without waiting for a medium: nothing is sent to a fixed drive by that. NVMe
/// commands go to the file of the namespace, which asks for less right than that of its controller; the kernel passes
/// those of the controller on.
DeviceOpening OpenDriveDevice(const std::string& path);

/// What an errno of opening or asking says.
DriveResult ResultOfErrno(int error);

}  // namespace platform
