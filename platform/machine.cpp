#include "platform/machine.h"

#include "platform/batteries.h"
#include "platform/drives.h"
#include "platform/event_log.h"
#include "platform/firmware.h"
#include "platform/memory.h"
#include "platform/power.h"
#include "platform/power_manager.h"
#include "platform/processors.h"
#include "platform/region.h"
#include "platform/settings.h"
#include "platform/system_events.h"
#include "platform/system_facts.h"
#include "platform/volumes.h"

namespace platform {

MachineDoors::MachineDoors() = default;
MachineDoors::MachineDoors(MachineDoors&&) noexcept = default;
MachineDoors::~MachineDoors() = default;

}  // namespace platform
