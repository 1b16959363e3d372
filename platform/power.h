// What the machine runs on at present. Any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/system_event.h"

namespace platform {

/// A fact that the machine does not tell is absent.
struct PowerStatus {
  std::optional<PowerSource> source;
  std::optional<std::uint32_t> percent;  ///< Of all batteries together, 0..100; absent without a battery.
};

class Power {
 public:
  Power() = default;
  Power(const Power&) = delete;
  Power& operator=(const Power&) = delete;
  virtual ~Power() = default;

  virtual PowerStatus ReadStatus() = 0;
};

}  // namespace platform
