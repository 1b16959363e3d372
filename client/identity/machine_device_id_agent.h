// Device ids that are derived from the machine.
#pragma once

#include "tvk/device_id_agent.h"

namespace platform {
class Firmware;
class SystemFacts;
}  // namespace platform

namespace TVK {

/// The device id is a GUID-formed hash of the operating system's own installation id, so it stays the same until the
/// system is installed anew. The legacy id is one of the firmware's system UUID, so it survives that. Neither can be
/// turned back, and neither uses a serial number.
class MachineDeviceIdAgent final : public DeviceIdAgent {
 public:
  /// Both must outlive the agent.
  MachineDeviceIdAgent(platform::SystemFacts& system, platform::Firmware& firmware)
      : system_(system), firmware_(firmware) {}

  /// 1168 (ERROR_NOT_FOUND) when the machine has no such fact.
  unsigned long GetDeviceID(std::wstring& id) override;
  unsigned long GetLegacyDeviceID(std::wstring& id) override;

 private:
  platform::SystemFacts& system_;
  platform::Firmware& firmware_;
};

}  // namespace TVK
