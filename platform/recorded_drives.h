// The drives of a recorded machine (drive_recording.h tells how they lie there).
#pragma once

#include <filesystem>
#include <memory>

#include "platform/drives.h"

namespace platform {

/// Those below `folder`, which is read whenever they are asked for. A folder with another name than a recording gives,
/// without its text, or of a path that another one before it has, is passed over. A page whose file is missing is not
/// supported, one of the wrong size or that cannot be read fails; actions are not supported; all of them are awake.
std::unique_ptr<Drives> MakeRecordedDrives(std::filesystem::path folder);

}  // namespace platform
