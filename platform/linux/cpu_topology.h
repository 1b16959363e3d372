// The processors of a machine, from /sys/devices/system/cpu and /proc/cpuinfo.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/sysroot.h"
#include "platform/processors.h"

namespace platform {

/// One folder cpuN/cache/indexM.
struct CacheDescription {
  std::uint64_t level = 0;
  std::string type;                   ///< "Data", "Instruction", "Unified".
  std::uint64_t bytes = 0;            ///< 0 when the system does not tell.
  std::vector<std::uint32_t> shared;  ///< The processors that share it, in rising order.
};

/// One processor that is online.
struct ProcessorDescription {
  std::uint32_t number = 0;
  std::vector<std::uint32_t> core_processors =
      {};  ///< The processors of its core, itself among them; empty when unknown.
  std::optional<std::uint64_t> package = {};
  std::optional<std::uint64_t> die = {};
  std::optional<std::uint64_t> core = {};  ///< Counted anew in each die and package.
  std::vector<CacheDescription> caches = {};
};

/// Counts cores and caches. Cores are told apart by their processors, or else by package, die and core number; a
/// processor that tells neither, and that no other one names as of its core, is a core of its own. A cache is counted
/// once however many processors share it; one that does not say who shares it is not counted.
ProcessorTopology CountTopology(const std::vector<ProcessorDescription>& processors);

/// Reads and counts what is online. What sysfs lacks of a processor, /proc/cpuinfo tells; ENOENT is the error when
/// neither tells anything.
TopologyReading ReadTopology(const Sysroot& root);

}  // namespace platform
