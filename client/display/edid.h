// What a display says of itself: the 128 bytes of its base EDID, laid out as in the VESA E-EDID Standard, release A2
// (EDID 1.4), section 3. Pure; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace TVK {

/// What a display does not tell is empty or absent. Texts are ASCII, without blanks at their ends.
struct EdidFacts {
  std::string maker = {};          ///< Three capital letters, "DEL"; section 3.4.1. Never empty.
  std::uint16_t product = 0;       ///< The maker's number of the model; section 3.4.2.
  std::string model = {};          ///< Its name for people; display descriptor FCh, section 3.10.3.4.
  std::string serial_number = {};  ///< Descriptor FFh, section 3.10.3.1, else the number of section 3.4.3. In clear.
  std::optional<int> year = {};    ///< Of the manufacture, or of the model; section 3.4.4.
};

/// Nothing unless the header, the checksum and the maker are sound. What lies behind the base block (extensions) is not
/// looked at.
std::optional<EdidFacts> DecodeEdid(std::span<const std::uint8_t> bytes);

}  // namespace TVK
