// Tables from files: what `dmidecode --dump-bin` writes, and raw 'RSMB' blobs.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace TVK {

struct SmbiosDump {
  /// The table in the form of Firmware::ReadSmbios. Empty when the bytes are no table.
  std::vector<std::uint8_t> rsmb;
  /// One line in UTF-8. `rsmb` empty: why the bytes are no table. `rsmb` not empty: SMBiosTool::Problem of it.
  std::string problem;
};

/// Takes a dump file (an entry point at offset 0, the table at offset 0x20) or an 'RSMB' blob. Any thread.
SmbiosDump NormaliseSmbiosDump(std::span<const std::uint8_t> bytes);

}  // namespace TVK
