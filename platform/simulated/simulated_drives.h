// Drives that a test scripts.
#pragma once

#include "platform/drives.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// One solid-state drive until then.
class SimulatedDrives final : public Drives, public Scripted<std::vector<DriveListing>> {
 public:
  SimulatedDrives()
      : Scripted(std::vector<DriveListing>{{.path = "/dev/nvme0n1",
                                            .bus = DriveBus::kNvme,
                                            .model = "Contoso NVMe 512GB",
                                            .firmware_version = "1.0",
                                            .bytes = 512'110'190'592,
                                            .rotating = false}}) {}

  std::vector<DriveListing> List() override { return Get(); }
};

}  // namespace platform
