// Drives that a test scripts.
#pragma once

#include <functional>
#include <map>

#include "platform/drives.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// One attached drive.
struct SimulatedDrive {
  DriveListing listing = {};
  DrivePower power = DrivePower::kAwake;
  std::map<DrivePage, std::vector<std::uint8_t>> pages = {};  ///< What it answers; others are not supported.
  /// In the place of `pages`, when given: called on the thread that asks, with no lock held, and may wait.
  std::function<DriveAnswer(DrivePage)> read = {};
  std::function<DriveAnswer(DriveAction)> act = {};  ///< Without one no action is supported.
  DriveResult opening = DriveResult::kDone;          ///< What an attempt to open it gives.
};

/// One NVMe drive until then, whose identity says nothing beyond the list, and which tells nothing else. A drive that
/// is opened answers as it is scripted at that moment; one that is not listed any more is gone.
class SimulatedDrives final : public Drives, public Scripted<std::vector<SimulatedDrive>> {
 public:
  SimulatedDrives();

  std::vector<DriveListing> List() override;
  DriveOpening Open(const DriveListing& drive) override;
};

}  // namespace platform
