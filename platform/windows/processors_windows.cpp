#include "platform/windows/doors_windows.h"
#include "platform/windows/processor_load.h"
#include "platform/windows/processor_topology.h"

namespace platform::windows {
namespace {

class WindowsProcessors final : public Processors {
 public:
  ProcessorLoadOpening OpenUtility() override {
    return OpenProcessorLoad(L"\\Processor Information(*)\\% Processor Utility");
  }
  ProcessorLoadOpening OpenTime() override { return OpenProcessorLoad(L"\\Processor(_Total)\\% Processor Time"); }
  TopologyReading ReadTopology() override { return ReadProcessorTopology(); }
};

}  // namespace

std::unique_ptr<Processors> MakeProcessors() {
  return std::make_unique<WindowsProcessors>();
}

}  // namespace platform::windows
