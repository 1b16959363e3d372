// The names under which records carry the attributes of ATA drives. They are read elsewhere: spellings stay.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace TVK {

struct SmartName {
  std::wstring_view text;  ///< Empty for an attribute that is not recorded.
  std::uint8_t rank = 0;   ///< The same for the same text, greater for a greater one.
};

/// By attribute id.
using SmartNames = std::array<SmartName, 256>;

extern const SmartNames kSataSmartNames;     ///< Of SATA solid-state drives.
extern const SmartNames kGenericSmartNames;  ///< Of every ATA drive. Some names stand at two ids.

}  // namespace TVK
