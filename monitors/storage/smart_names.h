// The names under which records carry the attributes of ATA drives. They are read elsewhere: spellings stay.
#pragma once

#include <array>

namespace TVK {

/// Name by attribute id; null for one that is not recorded.
using SmartNames = std::array<const wchar_t*, 256>;

extern const SmartNames kSataSmartNames;     ///< Of SATA solid-state drives.
extern const SmartNames kGenericSmartNames;  ///< Of every ATA drive. Some names stand at two ids.

}  // namespace TVK
