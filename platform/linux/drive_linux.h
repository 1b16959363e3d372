// One drive of this computer: which commands it is asked by, and what its answers mean.
#pragma once

#include <functional>
#include <memory>

#include "platform/drives.h"
#include "platform/linux/drive_device.h"

namespace platform {

/// In which set of commands a drive is asked.
enum class DriveSpeech {
  kNone,  ///< None that gives a page; its device file is not opened.
  kAta,   ///< ATA, through SCSI.
  kNvme,
};

/// Opens a drive that speaks so. `is_suspended` asks the system, without a word to the drive, whether it put the drive
/// to sleep: the device file of one that sleeps is opened with its first command.
DriveOpening OpenDrive(DriveSpeech speech, const std::string& path, DeviceOpener open,
                       std::function<bool()> is_suspended);

}  // namespace platform
