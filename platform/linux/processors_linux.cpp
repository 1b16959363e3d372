#include "platform/linux/cpu_topology.h"
#include "platform/linux/doors_linux.h"
#include "platform/linux/processor_load.h"

namespace platform {
namespace {

class LinuxProcessors final : public Processors {
 public:
  LinuxProcessors(const Sysroot& root, const Clock& clock) : root_(root), clock_(clock) {}

  // The kernel keeps no time weighted by frequency: both readers measure the same.
  ProcessorLoadOpening OpenUtility() override { return OpenTime(); }
  ProcessorLoadOpening OpenTime() override { return OpenProcessorLoad(root_.Resolve("/proc/stat"), clock_); }

  platform::TopologyReading ReadTopology() override { return platform::ReadTopology(root_); }

 private:
  const Sysroot root_;
  const Clock& clock_;
};

}  // namespace

std::unique_ptr<Processors> MakeProcessors(const Sysroot& root, const Clock& clock) {
  return std::make_unique<LinuxProcessors>(root, clock);
}

}  // namespace platform
