// How a drive that is not here lies in a recorded tree: a folder `drives/NAME` with a text of what the system tells of
// it, and beside that the pages that it answered, byte by byte, in files of their own. Pure but for the door in
// recorded_drives.h; any thread.
//
// drive.txt holds lines `key value`: `path`, `bus` (as BusName has it), `model`, `firmware`, `serial`, `bytes`,
// `rotating` and `removable` (yes or no). Only the path must be there; other keys are passed over.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/drives.h"

namespace platform {

inline constexpr char kDrivesFolder[] = "drives";
inline constexpr char kDriveTextFile[] = "drive.txt";
/// The longest such file that is read.
inline constexpr std::size_t kDriveTextLimit = 4096;

/// "NVMe", "ATA", "USB", "SCSI", "card", "other".
std::string_view BusName(DriveBus bus);

/// The pages that a drive on that bus may have.
std::vector<DrivePage> PagesOf(DriveBus bus);
/// The file of a page, "ata-identify", and how many bytes it has.
std::string_view PageFileName(DrivePage page);
std::size_t PageSize(DrivePage page);

/// A name for the folder of the drive of that path: the last part of it.
std::string DriveFolderName(std::string_view path);
/// Whether it is one that we would have given: letters, digits and "-", "_", "." (not in front), at most 64.
bool IsDriveFolderName(std::string_view name);

std::string EncodeDriveText(const DriveListing& drive);
/// Nothing without a path. Control characters come out as blanks, a bus or a number that is none as not told.
std::optional<DriveListing> DecodeDriveText(std::string_view text);

/// A drive as it is recorded.
struct DriveRecording {
  DriveListing listing = {};
  std::map<DrivePage, std::vector<std::uint8_t>> pages = {};  ///< Each of PageSize.
};

}  // namespace platform
