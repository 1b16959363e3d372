// What a driver of Windows answers to a control code.
#pragma once

#include <cstdint>
#include <vector>

namespace platform {

struct DriverAnswer {
  std::uint32_t error = 0;               ///< Of GetLastError; 0: it was done.
  std::vector<std::uint8_t> bytes = {};  ///< Empty on failure.
};

}  // namespace platform
