// `tvkctl inspect`: what the collectors read from this machine, a recorded one or a file.
#pragma once

#include <filesystem>
#include <iosfwd>

#include "platform/machine.h"

namespace tvkctl {

struct InspectOptions {
  std::filesystem::path smbios_file;  ///< The table to decode. Empty: that of the machine.
  bool json = false;                  ///< One JSON object in one line instead of lines for people.
  std::string machine_name;           ///< What messages call the machine.
};

/// Each writes what it found to `out` and what is wrong to `errors`, in UTF-8. Returns 0, also when only a part of a
/// damaged table could be read (a warning on `errors` says so); 2 when `smbios_file` cannot be read or is no table;
/// 3 when the machine tells nothing. `out` is untouched unless 0 is returned.

/// The CPU dataset's item data.
int RunInspectCpu(const InspectOptions& options, platform::Machine& machine, std::ostream& out, std::ostream& errors);

/// The populated memory slots and the machine's totals, from the SMBIOS table.
int RunInspectMemory(const InspectOptions& options, platform::Machine& machine, std::ostream& out,
                     std::ostream& errors);

/// The BIOS dataset's item data, and maker, product and version of system and baseboard; serial numbers hashed.
int RunInspectFirmware(const InspectOptions& options, platform::Machine& machine, std::ostream& out,
                       std::ostream& errors);

}  // namespace tvkctl
