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
  // The older counter set knows the processors of one group alone, and is there on systems without the newer one.
  ProcessorLoadOpening OpenTime() override {
    ProcessorLoadOpening opening = OpenProcessorLoad(L"\\Processor Information(_Total)\\% Processor Time");
    if (opening.reader == nullptr) opening = OpenProcessorLoad(L"\\Processor(_Total)\\% Processor Time");
    return opening;
  }
  TopologyReading ReadTopology() override { return ReadProcessorTopology(); }
};

}  // namespace

std::unique_ptr<Processors> MakeProcessors() {
  return std::make_unique<WindowsProcessors>();
}

}  // namespace platform::windows
