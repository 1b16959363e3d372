// The doors of the local or a recorded Linux machine. Each reads below its root whenever it is asked and has no other
// state.
#pragma once

#include <memory>

#include "platform/linux/drive_device.h"
#include "platform/linux/sysroot.h"

namespace platform {

class Batteries;
class Clock;
class Drives;
class EventLog;
class Firmware;
class Memory;
class Power;
class PowerWishes;
class Processors;
class Region;
class Settings;
class SystemEvents;
class SystemFacts;
class Volumes;

/// `clock` must outlive the door and its readers.
std::unique_ptr<Processors> MakeProcessors(const Sysroot& root, const Clock& clock);
std::unique_ptr<Memory> MakeMemory(const Sysroot& root);
std::unique_ptr<Firmware> MakeFirmware(const Sysroot& root);

/// The news of its readers is for the Linux runtime. `clock` must outlive the door and its readers.
std::unique_ptr<EventLog> MakeEventLog(const Sysroot& root, const Clock& clock);

std::unique_ptr<Power> MakePower(const Sysroot& root, std::shared_ptr<PowerWishes> wishes);
std::unique_ptr<Batteries> MakeBatteries(const Sysroot& root);

/// Drives are opened by `open`; when it is empty, none is: one of a recorded machine is not this computer's.
std::unique_ptr<Drives> MakeDrives(const Sysroot& root, DeviceOpener open);

/// `measures`: the mounts below `root` are this computer's, whose space can be asked for.
std::unique_ptr<Volumes> MakeVolumes(const Sysroot& root, bool measures);

/// Of this computer, but its power, which is read below `root`.
std::unique_ptr<SystemEvents> MakeSystemEvents(const Sysroot& root, std::shared_ptr<PowerWishes> wishes);

std::unique_ptr<SystemFacts> MakeSystemFacts(const Sysroot& root);
std::unique_ptr<Region> MakeRegion(const Sysroot& root);

/// `system` and `region` must outlive the door and its watchers.
std::unique_ptr<Settings> MakeSettings(const Sysroot& root, SystemFacts& system, Region& region);

}  // namespace platform
