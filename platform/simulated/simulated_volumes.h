// Volumes that a test scripts.
#pragma once

#include <functional>

#include "platform/simulated/scripted.h"
#include "platform/volumes.h"

namespace platform {

/// The system's own volume until then, half of it free.
class SimulatedVolumes final : public Volumes, public Scripted<std::vector<Volume>> {
 public:
  SimulatedVolumes()
      : Scripted(std::vector<Volume>{{.id = "01234567-89ab-cdef-0123-456789abcdef",
                                      .role = VolumeRole::kSystem,
                                      .file_system = "ext4",
                                      .space = VolumeSpace{512'000'000'000, 256'000'000'000},
                                      .encrypted = true,
                                      .errors = 0}}) {}

  std::vector<Volume> List() override {
    if (while_listing) while_listing();
    return Get();
  }

  /// Called by each List on its thread; may wait. Before others use the object.
  std::function<void()> while_listing = {};
};

}  // namespace platform
