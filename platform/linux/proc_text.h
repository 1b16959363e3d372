// Decoders of /proc/stat and /proc/meminfo, proc(5). Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/memory.h"

namespace platform {

/// How long all processors together have worked and rested since boot, in clock ticks.
struct ProcessorTimes {
  std::uint64_t busy = 0;
  std::uint64_t idle = 0;  ///< Includes the time in which a processor had nothing to do but wait for a drive.
};

/// From the first line of /proc/stat. Empty when it is not the line of all processors or its numbers make no sense.
std::optional<ProcessorTimes> DecodeProcessorTimes(std::string_view stat);

/// The share of busy time between two readings in percent, rounded. Empty when no time passed or a counter went
/// backwards (a processor was taken offline, the machine was restored from a snapshot).
std::optional<std::int32_t> BusyPercent(const ProcessorTimes& before, const ProcessorTimes& after);

/// The moment of boot (seconds since 1970) from /proc/stat.
std::optional<std::int64_t> DecodeBootTime(std::string_view stat);

/// From /proc/meminfo; empty without a total. Kernels older than 3.14 do not tell what is available: free memory,
/// buffers and cache stand in for it there.
std::optional<MemoryStatus> DecodeMeminfo(std::string_view meminfo);

}  // namespace platform
