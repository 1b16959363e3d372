// The system's events as Windows' service manager tells them to a service's control handler (HandlerEx). The codes and
// layouts are data, so this is the same on every system. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "platform/system_event.h"

namespace platform {

/// The bytes behind `event_data` as the control and its event type promise them: a POWERBROADCAST_SETTING or a
/// DEV_BROADCAST_HDR of the length that it states, or a WTSSESSION_NOTIFICATION. Empty for other controls and for a
/// null pointer.
std::span<const std::uint8_t> ServiceControlData(unsigned long control, unsigned long event_type,
                                                 const void* event_data);

/// The event that a control means; nothing for a control that means none of ours, and for data that are cut short or
/// out of range. Of the two codes of a resume only the one that comes with every resume (PBT_APMRESUMEAUTOMATIC)
/// counts; the other (PBT_APMRESUMESUSPEND) follows it when a user is there.
std::optional<SystemEvent> DecodeServiceControl(unsigned long control, unsigned long event_type,
                                                std::span<const std::uint8_t> event_data);

/// The same for the arguments as the handler has them.
std::optional<SystemEvent> DecodeServiceControl(unsigned long control, unsigned long event_type,
                                                const void* event_data);

/// What the event type of a session change (WTS_SESSION_LOGON and so on) means for users; nothing for the others.
std::optional<SessionChange> DecodeSessionChange(unsigned long event_type, unsigned long session);

}  // namespace platform
