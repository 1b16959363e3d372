// What the energy-management driver tells of a battery.
#pragma once

/// A value.
struct _EM_BATTERY_INFO {};  // NOLINT(*-reserved-identifier,cert-dcl*): the block's established name
