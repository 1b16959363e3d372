// Who made this machine and its firmware.
#pragma once

#include "client/smbios/smbios_identity.h"

namespace platform {
class Firmware;
}

namespace TVK {

/// The facts of the machine's SMBIOS table as far as it is sound, each gap filled with what the operating system keeps
/// readable for everybody. `smbios_version` is empty when nothing of the table could be read. Any thread.
SmbiosIdentity ReadMachineFirmware(platform::Firmware& firmware);

}  // namespace TVK
