// `tvkctl inspect drives`: the machine's drives, and the recording of them.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <string>

#include "platform/machine.h"

namespace tvkctl {

struct DrivesOptions {
  std::filesystem::path record_folder = {};  ///< Where the drives are recorded; empty: they are shown only.
  bool json = false;                         ///< One JSON object in one line instead of lines for people.
  std::string machine_name = {};             ///< What messages call the machine.
};

/// The drives that are attached: path, bus, size in bytes, model, firmware, hashed serial number; what the system knows
/// without asking them. With a folder to record into, each drive that is awake is asked for its pages, and what was
/// written there and why the rest is missing is shown too. Writes what it found to `out` and what is wrong to `errors`,
/// in UTF-8. Returns 0; 2 when the folder has a recording already; 3 when the machine tells of no drives or the folder
/// cannot be written. `out` is untouched unless 0 is returned.
int RunInspectDrives(const DrivesOptions& options, platform::Machine& machine, std::ostream& out, std::ostream& errors);

}  // namespace tvkctl
