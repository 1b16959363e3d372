// What the records tell of a battery, key by key: one place for whoever writes them and whoever shows them. Pure; any
// thread.
#pragma once

#include "client/battery/battery_info.h"
#include "tvk/records.h"

namespace TVK {

/// The item data of the battery's dataset context: what it is. Its serial number is hashed; an entry that is "UnKnown"
/// or empty is left out.
ItemData BatteryContextItemData(const BatteryInfo& battery);

/// The item data of the battery's item events: how it is. An entry that is "UnKnown" or empty is left out.
ItemData BatteryItemData(const BatteryInfo& battery);

}  // namespace TVK
