// Memory that a test scripts.
#pragma once

#include "platform/memory.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// Empty: the machine does not tell.
class SimulatedMemory final : public Memory, public Scripted<std::optional<MemoryStatus>> {
 public:
  SimulatedMemory() : Scripted(MemoryStatus{40, 16ull << 30, (16ull << 30) * 6 / 10}) {}

  std::optional<MemoryStatus> ReadStatus(std::uint32_t* error) override {
    auto status = Get();
    if (!status && error != nullptr) *error = kErrorNotSupported;
    return status;
  }
  std::vector<MemoryErrors> ReadErrors() override { return errors.Get(); }

  Scripted<std::vector<MemoryErrors>> errors{{}};
};

}  // namespace platform
