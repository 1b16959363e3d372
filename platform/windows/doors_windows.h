// The doors of the local Windows machine. Each asks the system whenever it is asked and has no other state.
#pragma once

#include <memory>

namespace platform {

class Batteries;
class Clock;
class Drives;
class EventLog;
class Firmware;
class Memory;
class Power;
class PowerManager;
class Processors;
class Region;
class Settings;
class SystemEvents;
class SystemFacts;
class Volumes;

}  // namespace platform

namespace platform::windows {

std::unique_ptr<Processors> MakeProcessors();
std::unique_ptr<Memory> MakeMemory();
std::unique_ptr<Firmware> MakeFirmware();
std::unique_ptr<EventLog> MakeEventLog();

/// `clock` must outlive the door.
std::unique_ptr<SystemFacts> MakeSystemFacts(const Clock& clock);
std::unique_ptr<Region> MakeRegion();
std::unique_ptr<Settings> MakeSettings();
std::unique_ptr<Power> MakePower();
std::unique_ptr<Batteries> MakeBatteries();
std::unique_ptr<PowerManager> MakePowerManager();
std::unique_ptr<Drives> MakeDrives();
std::unique_ptr<Volumes> MakeVolumes();
std::unique_ptr<SystemEvents> MakeSystemEvents();

}  // namespace platform::windows
