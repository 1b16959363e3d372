#include "platform/simulated/simulated_processors.h"

namespace platform {
namespace {

class SimulatedLoadReader final : public ProcessorLoadReader {
 public:
  explicit SimulatedLoadReader(const SimulatedProcessors& processors) : processors_(processors) {}

  std::optional<std::int32_t> Sample() override {
    // The script is called outside the lock: it may change the machine.
    const auto load = processors_.Get().load;
    return load ? load() : std::nullopt;
  }

 private:
  const SimulatedProcessors& processors_;
};

}  // namespace

ProcessorLoadOpening SimulatedProcessors::OpenUtility() {
  return OpenLoad(Get().utility_error);
}

ProcessorLoadOpening SimulatedProcessors::OpenTime() {
  return OpenLoad(Get().time_error);
}

ProcessorLoadOpening SimulatedProcessors::OpenLoad(std::int64_t error) {
  if (error != 0) return {nullptr, error};
  return {std::make_unique<SimulatedLoadReader>(*this), 0};
}

TopologyReading SimulatedProcessors::ReadTopology() {
  TopologyReading reading;
  Change([&](SimulatedProcessorState& state) {
    if (state.topology_script.empty()) {
      reading = state.topology;
    } else {
      reading = std::move(state.topology_script.front());
      state.topology_script.pop_front();
    }
  });
  return reading;
}

}  // namespace platform
