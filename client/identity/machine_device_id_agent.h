// Device ids that are derived from the machine.
#pragma once

#include "platform/machine.h"
#include "tvk/device_id_agent.h"

namespace TVK {

/// The device id is a GUID-formed hash of the operating system's own installation id, so it stays the same until the
/// system is installed anew. The legacy id is one of the firmware's system UUID, so it survives that. Neither can be
/// turned back, and neither uses a serial number.
class MachineDeviceIdAgent final : public DeviceIdAgent {
 public:
  /// `machine` must outlive the agent.
  explicit MachineDeviceIdAgent(platform::Machine& machine) : machine_(machine) {}

  /// 1168 (ERROR_NOT_FOUND) when the machine has no such fact.
  unsigned long GetDeviceID(std::wstring& id) override;
  unsigned long GetLegacyDeviceID(std::wstring& id) override;

 private:
  platform::Machine& machine_;
};

}  // namespace TVK
