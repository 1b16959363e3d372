// Processors that a test scripts.
#pragma once

#include <deque>
#include <functional>

#include "platform/processors.h"
#include "platform/simulated/scripted.h"

namespace platform {

/// The defaults are those of a plausible small laptop.
struct SimulatedProcessorState {
  /// Called for each sample of processor utility or time; empty result: the sample fails.
  std::function<std::optional<std::int32_t>()> load = [] { return std::optional<std::int32_t>(5); };
  std::int64_t utility_error = 0;                    ///< Not 0: OpenUtility fails with it.
  std::int64_t time_error = 0;                       ///< Not 0: OpenTime fails with it.
  std::deque<TopologyReading> topology_script = {};  ///< Answers to give first, one a call; then `topology`.
  TopologyReading topology{.topology = {.name = "Simulated Processor 4000",
                                        .address_width = 64,
                                        .cores = 4,
                                        .logical_processors = 8,
                                        .l2 = {4u << 20, 4},
                                        .l3 = {8u << 20, 1}}};
};

class SimulatedProcessors final : public Processors, public Scripted<SimulatedProcessorState> {
 public:
  ProcessorLoadOpening OpenUtility() override;
  ProcessorLoadOpening OpenTime() override;
  TopologyReading ReadTopology() override;

 private:
  ProcessorLoadOpening OpenLoad(std::int64_t error);
};

}  // namespace platform
