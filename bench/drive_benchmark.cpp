// How fast does what drives answer become the item data of a record?
//
//   NvmeHealth   a SMART / Health Information page, decoded, and its item data                         target: below 5
//   us AtaSmart     the sectors of 30 attributes and of their thresholds, decoded, their item data, and
//                the search for failing ones                                                           target: below 5
//                us
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "bench/targets.h"
#include "bench/timed_runs.h"
#include "monitors/storage/pcie_nvme_smart_info.h"
#include "monitors/storage/smart_info.h"
#include "testing/drive_sectors.h"

namespace {

constexpr std::uint8_t kIds[] = {1,   2,   3,   4,   5,   7,   8,   9,   10,  11,  12,  183, 184, 187, 188,
                                 189, 190, 191, 192, 193, 194, 195, 196, 197, 198, 199, 240, 241, 242, 254};

void NvmeHealth(benchmark::State& state) {
  const testing_support::Sector page = testing_support::NvmeHealthPage();
  const TVK::Log log;
  std::size_t entries = 0;
  for (auto iteration : state) {
    PCIeNVMeSmartInfo info(log);
    ItemData data;
    info.ReadSMARTInfo([&](TVK::NvmeHealth& health) {
      health = *TVK::DecodeNvmeHealth(page);
      return 0;
    });
    info.GetSmartInfoList(data);
    entries = data.size();
  }
  if (entries != 25) state.SkipWithError("not every field was told");
}

void AtaSmart(benchmark::State& state) {
  std::vector<testing_support::AttributeSpec> attributes;
  std::vector<testing_support::ThresholdSpec> thresholds;
  for (const std::uint8_t id : kIds) {
    attributes.push_back({.id = id, .raw = 123456789});
    thresholds.push_back({id, 50});
  }
  const testing_support::Sector values = testing_support::AtaValues(attributes);
  const testing_support::Sector limits = testing_support::AtaThresholds(thresholds);
  const TVK::Log log;
  const SmartInfo info(log);
  std::size_t entries = 0;
  for (auto iteration : state) {
    const auto smart = TVK::DecodeAtaSmart(values, limits);
    ItemData data;
    info.FillSmartAttribValues2(*smart, data);
    benchmark::DoNotOptimize(info.FoundPredictFailure(*smart));
    entries = data.size();
  }
  if (entries != std::size(kIds)) state.SkipWithError("not every attribute was told");
}

BENCHMARK(NvmeHealth)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);
BENCHMARK(AtaSmart)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);

}  // namespace

int main(int argc, char** argv) {
  const auto medians = RunTimed(argc, argv);
  if (medians.contains("NvmeHealth")) {
    PrintTarget("NVMe health page, decoded, item data, us", medians.at("NvmeHealth"), "<", 5);
  }
  if (medians.contains("AtaSmart")) {
    PrintTarget("ATA sectors of 30 attributes, the same, us", medians.at("AtaSmart"), "<", 5);
  }
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
