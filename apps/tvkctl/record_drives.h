// Recording of drives, so that they are looked at where they are not. platform/drive_recording.h tells the layout.
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "platform/drives.h"

namespace tvkctl {

/// What became of each page of a drive, in words: "recorded", or why it is not.
struct RecordedPages {
  std::vector<std::pair<platform::DrivePage, std::string>> pages;
};

struct DrivesRecord {
  std::vector<RecordedPages> drives;  ///< One for each that was asked for, in their order.
  std::string problem;                ///< Empty, or why the folder could not be written.
};

/// Asks each of `listed` that is awake for the pages that its bus has, and writes them below `folder`, which is made
/// when needed: serial numbers become "BLANKED-1", "BLANKED-2" and so on, one and the same where it was one. Takes as
/// long as the drives do. The folder must hold no recording.
DrivesRecord RecordDrives(platform::Drives& drives, const std::vector<platform::DriveListing>& listed,
                          const std::filesystem::path& folder);

}  // namespace tvkctl
