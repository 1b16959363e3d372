// The decoder of what Windows tells of its processors: nothing outside the bytes is read, and what is counted was
// there.
#include <algorithm>
#include <cstdlib>
#include <memory>

#include "platform/processor_relations.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Of their own, so that a byte behind them is found out.
  const auto copy = std::make_unique<std::uint8_t[]>(size);
  std::copy(data, data + size, copy.get());
  const platform::ProcessorTopology topology = platform::DecodeProcessorRelations({copy.get(), size});
  if (topology.cores * platform::kCoreRecordSize > size || topology.logical_processors > size * 8) std::abort();
  if (topology.l2.count + topology.l3.count > size) std::abort();
  return 0;
}
