// The log files of the power manager.
#pragma once

#include <cstdint>

#include "platform/power_manager.h"
#include "platform/windows/user_session.h"

namespace platform::windows {

/// PowerManager::ReadLogs. The folder is one in which every user may make files: they are read by a thread of its own
/// that has the logged-on user's rights and ends with them, so that nobody learns through us what he could not read
/// himself, and nothing else is ever done with these rights. Links are not followed, and of more than 16 files the rest
/// is left out. Without the folder no rights are asked for.
/// A reading that takes longer than three seconds is called off; one that cannot be is left behind with its thread, and
/// fails with ERROR_TIMEOUT; so does every other one until it has come back.
PowerManagerLogs ReadPowerManagerLogs(std::uint64_t least, std::uint64_t most, Sessions& sessions = LocalSessions());

}  // namespace platform::windows
