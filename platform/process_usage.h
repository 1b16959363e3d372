// What this process has used of the machine.
#pragma once

#include <chrono>
#include <cstdint>

namespace platform {

struct ProcessUsage {
  std::chrono::milliseconds processor_time{0};  ///< Of all its threads, since it began.
  std::uint64_t memory_bytes = 0;  ///< That it holds now and shares with nobody; Windows: also what is paged out.
};

/// 0 for what the system does not tell. Any thread.
ProcessUsage ReadProcessUsage();

}  // namespace platform
