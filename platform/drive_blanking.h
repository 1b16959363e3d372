// Makes a recorded drive one that nobody can find again. Pure; any thread.
#pragma once

#include <string>
#include <string_view>

#include "platform/drive_recording.h"

namespace platform {

/// The serial number that the drive's own pages tell, else the system's, which may be a namespace's; empty without any.
std::string SerialNumberOf(const DriveRecording& recording);

/// Takes out of a recording what tells its drive from others of its model: the serial numbers become `name` (at most 20
/// ASCII characters), worldwide names and what the makers keep for themselves become zeros, and wherever else a serial
/// number stands, X. Checksums that were right stay right. What a drive counts, its health, stays.
void BlankIdentity(DriveRecording& recording, std::string_view name);

}  // namespace platform
