// The drives of the machine: which are attached, and what they answer themselves. Listing them reads nothing from a
// drive and needs no right to it. On Linux it asks none, but a virtual machine's host for the serial numbers of its
// drives; on Windows their drivers answer. Either may take as long as one hangs, and so may opening and asking one. Any
// thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// How the machine reaches a drive. One behind a bridge counts by the bridge: a SATA drive in a USB enclosure is on
/// kUsb.
enum class DriveBus { kOther, kNvme, kAta, kUsb, kScsi, kCard };

/// A text that the system does not tell is empty. Texts are UTF-8, their ends without blanks.
struct DriveListing {
  /// What the system opens it by, "/dev/sda" or "\\.\PhysicalDrive0"; its own while it is attached.
  std::string path = {};
  DriveBus bus = DriveBus::kOther;
  std::string model = {};
  std::string firmware_version = {};
  /// As the system tells it, in clear: it leaves the client hashed only. Windows gives the name of an NVMe namespace,
  /// where the drive itself tells its serial number.
  std::string serial_number = {};
  std::uint64_t bytes = 0;            ///< 0: not told, or no medium is in it.
  std::optional<bool> rotating = {};  ///< It has turning platters; absent when it is not told.
  bool removable = false;             ///< Its medium is.

  bool operator==(const DriveListing&) const = default;
};

/// What a drive can be asked for: each is one sector or log page as its standard lays it out (ATA/ATAPI Command Set,
/// ACS-4; NVM Express Base Specification 2.0).
enum class DrivePage {
  kAtaIdentify,         ///< IDENTIFY DEVICE data, 512 bytes.
  kAtaSmartValues,      ///< SMART READ DATA, 512 bytes.
  kAtaSmartThresholds,  ///< SMART READ THRESHOLDS (ATA-5), 512 bytes.
  kAtaSelfTestLog,      ///< SMART READ LOG, log 06h, 512 bytes.
  kNvmeController,      ///< Identify Controller data (CNS 01h), 4096 bytes.
  kNvmeHealth,          ///< SMART / Health Information log (02h) of the controller, 512 bytes.
  kNvmeSelfTestLog,     ///< Device Self-test log (06h), 564 bytes.
};

enum class DriveAction {
  kAtaStartShortSelfTest,  ///< SMART EXECUTE OFF-LINE IMMEDIATE, short, in off-line mode: the drive goes on serving.
  kAtaAbortSelfTest,
  kNvmeStartShortSelfTest,  ///< Device Self-test of the controller and all its namespaces.
  kNvmeAbortSelfTest,
};

enum class DriveResult {
  kDone,
  kNoRight,       ///< The process may not.
  kNotSupported,  ///< The drive, its driver or the bridge before it does not know the command.
  kRefused,       ///< The drive knows it and said no; `error` says why.
  kTimedOut,
  kGone,    ///< There is no such drive any more.
  kFailed,  ///< Anything else; `error` is the system's.
};

struct DriveAnswer {
  DriveResult result = DriveResult::kDone;
  /// errno or GetLastError; of kRefused what the drive gave: ATA's status and error registers (status in the upper
  /// byte), NVMe's status field without its phase bit. 0 where there is none.
  std::uint32_t error = 0;
  std::vector<std::uint8_t> bytes = {};  ///< Of kDone, for a page: all its bytes. Otherwise empty.
};

enum class DrivePower {
  kAwake,
  kAsleep,   ///< Most commands would wake it.
  kUnknown,  ///< Neither the drive nor the system tells.
};

/// How long the system lets one command take. It answers one that takes longer by resetting the drive, with all that
/// others do on it; so this is the systems' own patience with a drive, and whoever asks gives up earlier.
inline constexpr std::chrono::seconds kDriveCommandLimit{60};

/// One opened drive. One thread at a time. Hold it no longer than it is asked: on Windows the user cannot eject it
/// meanwhile.
class Drive {
 public:
  Drive() = default;
  Drive(const Drive&) = delete;
  Drive& operator=(const Drive&) = delete;
  virtual ~Drive() = default;

  /// Wakes no drive.
  virtual DrivePower ReadPower() = 0;
  virtual DriveAnswer Read(DrivePage page) = 0;
  /// kDone: the drive took it; a self-test then goes on in it.
  virtual DriveAnswer Do(DriveAction action) = 0;
};

struct DriveOpening {
  std::unique_ptr<Drive> drive;             ///< Null on failure.
  DriveResult result = DriveResult::kDone;  ///< Why it is null.
  std::uint32_t error = 0;                  ///< errno or GetLastError then.
};

/// Held by shared_ptr: whoever asks a drive that may hang keeps the object until that comes back, which may be after
/// the machine has gone.
class Drives : public std::enable_shared_from_this<Drives> {
 public:
  Drives() = default;
  Drives(const Drives&) = delete;
  Drives& operator=(const Drives&) = delete;
  virtual ~Drives() = default;

  /// The drives that are attached now, shorter paths first and those of one length in their order; optical and floppy
  /// drives, and what is made of other drives or of files (mappings, arrays, loops), left out. Empty when the system
  /// tells of none.
  virtual std::vector<DriveListing> List() = 0;

  /// Opens one that List gave, without waking it. The object outlives its drives.
  virtual DriveOpening Open(const DriveListing& drive) = 0;
};

}  // namespace platform
