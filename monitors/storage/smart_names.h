// The names under which records carry the attributes of ATA drives. They are read elsewhere: spellings stay.
#pragma once

#include <array>
#include <string_view>

namespace TVK {

/// By attribute id; empty for an attribute that is not recorded.
using SmartNames = std::array<std::wstring_view, 256>;

extern const SmartNames kSataSmartNames;     ///< Of SATA solid-state drives.
extern const SmartNames kGenericSmartNames;  ///< Of every ATA drive. Some names stand at two ids.

}  // namespace TVK
