// `tvkctl inspect smart`: what drives tell of their health, as the records have it.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

#include "platform/machine.h"
#include "platform/runtime.h"

namespace tvkctl {

/// Whose names the attributes of an ATA drive have.
enum class SmartTable { kSata, kGeneric };

struct SmartOptions {
  /// What a drive answered, 512 bytes each; empty: not given. Either those of an ATA drive or that of an NVMe drive;
  /// thresholds only beside values.
  std::filesystem::path ata_values = {};
  std::filesystem::path ata_thresholds = {};
  std::filesystem::path ata_identify = {};
  std::filesystem::path nvme_health = {};
  /// Nothing: that of the dataset for SATA solid-state drives, where the drive is known to be one.
  std::optional<SmartTable> table = {};
  bool json = false;              ///< One JSON object in one line instead of lines for people.
  std::string machine_name = {};  ///< What messages call the machine.

  bool has_files() const {
    return !ata_values.empty() || !ata_thresholds.empty() || !ata_identify.empty() || !nvme_health.empty();
  }
};

/// Both write what they found to `out` and what is wrong to `errors`, in UTF-8. `out` is untouched unless 0 is
/// returned.

/// The item data of the files, what is failing, and of an identification what the drive is, its serial number hashed.
/// Returns 0, or 2 when a file cannot be read, has not 512 bytes, or is damaged.
int RunInspectSmartFiles(const SmartOptions& options, std::ostream& out, std::ostream& errors);

/// The same of every drive of the machine, or in a few words why it does not tell. Returns 0, or 3 when none of them
/// tells. Waits as long as a drive may take.
int RunInspectSmartDrives(const SmartOptions& options, platform::Machine& machine, platform::Runtime& runtime,
                          std::ostream& out, std::ostream& errors);

}  // namespace tvkctl
