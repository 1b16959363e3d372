// The drives of the machine, as the operating system knows them: listing them reads nothing from a drive and needs no
// right to it. On Linux it asks none; on Windows their drivers answer, which may take as long as one hangs. Any thread.
#pragma once

#include <cstdint>
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
  std::uint64_t bytes = 0;            ///< 0: not told, or no medium is in it.
  std::optional<bool> rotating = {};  ///< It has turning platters; absent when it is not told.
  bool removable = false;             ///< Its medium is.

  bool operator==(const DriveListing&) const = default;
};

class Drives {
 public:
  Drives() = default;
  Drives(const Drives&) = delete;
  Drives& operator=(const Drives&) = delete;
  virtual ~Drives() = default;

  /// The drives that are attached now, shorter paths first and those of one length in their order; optical and floppy
  /// drives, and what is made of other drives or of files (mappings, arrays, loops), left out. Empty when the system
  /// tells of none.
  virtual std::vector<DriveListing> List() = 0;
};

}  // namespace platform
