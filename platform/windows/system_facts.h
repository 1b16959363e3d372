// Facts that the registry and the system's own calls tell about firmware, system, region and users.
#pragma once

#include "platform/machine.h"
#include "platform/windows/owner.h"

namespace platform::windows {

FirmwareFacts ReadFirmwareFacts();
OperatingSystemFacts ReadOperatingSystemFacts();

/// Of the logged-on user where that one's settings can be read, of the running account otherwise.
RegionFacts ReadRegionFacts();

/// By the system's own table of geographic ids; `nation` is one in decimal digits, empty is the answer to anything
/// else.
std::string CountryOfNation(const std::string& nation);

std::string ReadInstallationId();

/// The security identifier of the user at the console, or of the first active remote session. Asking for other users
/// needs the system account; without it, the running account counts when its session is such a one.
std::string ReadLoggedInUserSid();

/// The primary token of the user at the console, or of the first active remote session. None: nobody is logged on, or
/// the running account may not ask (the system account may).
UniqueKernelHandle OpenUserToken();

}  // namespace platform::windows
