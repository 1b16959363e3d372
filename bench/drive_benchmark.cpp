// How fast does what drives answer become the item data of a record, and what does a day's reading take?
//
//   NvmeDecoding  a SMART / Health Information page; target: below 5 us
//   NvmeItemData  the same, with its item data
//   AtaDecoding   the sectors of 30 attributes and of their thresholds, and the search for failing ones; target: below
//                 5 us
//   AtaItemData   the same, with its item data
//   FourDrives    a day of a machine with four drives: every dataset of drives' health finds them and asks its own,
//                 each on a thread of its own; the processor's time beyond what the system needs to ask them; target:
//                 below 1 ms
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

#include "bench/targets.h"
#include "bench/timed_runs.h"
#include "client/storage/hard_disk_info_collector.h"
#include "monitors/storage/pcie_nvme_smart_info.h"
#include "monitors/storage/smart_info.h"
#include "platform/local.h"
#include "platform/simulated/simulated_drives.h"
#include "testing/drive_sectors.h"

namespace {

constexpr std::uint8_t kIds[] = {1,   2,   3,   4,   5,   7,   8,   9,   10,  11,  12,  183, 184, 187, 188,
                                 189, 190, 191, 192, 193, 194, 195, 196, 197, 198, 199, 240, 241, 242, 254};

void NvmeDecoding(benchmark::State& state) {
  const testing_support::Sector page = testing_support::NvmeHealthPage();
  for (auto iteration : state)
    benchmark::DoNotOptimize(TVK::DecodeNvmeHealth(page));
}

void NvmeItemData(benchmark::State& state) {
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

struct AtaSectors {
  testing_support::Sector values;
  testing_support::Sector limits;
};

AtaSectors MakeAtaSectors() {
  std::vector<testing_support::AttributeSpec> attributes;
  std::vector<testing_support::ThresholdSpec> thresholds;
  for (const std::uint8_t id : kIds) {
    attributes.push_back({.id = id, .raw = 123456789});
    thresholds.push_back({id, 50});
  }
  return {testing_support::AtaValues(attributes), testing_support::AtaThresholds(thresholds)};
}

void AtaDecoding(benchmark::State& state) {
  const AtaSectors sectors = MakeAtaSectors();
  const TVK::Log log;
  const SmartInfo info(log);
  for (auto iteration : state)
    benchmark::DoNotOptimize(info.FoundPredictFailure(*TVK::DecodeAtaSmart(sectors.values, sectors.limits)));
}

void AtaItemData(benchmark::State& state) {
  const AtaSectors sectors = MakeAtaSectors();
  const TVK::Log log;
  const SmartInfo info(log);
  std::size_t entries = 0;
  for (auto iteration : state) {
    const auto smart = TVK::DecodeAtaSmart(sectors.values, sectors.limits);
    ItemData data;
    info.FillSmartAttribValues2(*smart, data);
    benchmark::DoNotOptimize(info.FoundPredictFailure(*smart));
    entries = data.size();
  }
  if (entries != std::size(kIds)) state.SkipWithError("not every attribute was told");
}

platform::SimulatedDrive Nvme(const char* path) {
  return {.listing = {.path = path, .bus = platform::DriveBus::kNvme, .model = "M", .serial_number = path},
          .pages = {{platform::DrivePage::kNvmeController, testing_support::Sector(4096)},
                    {platform::DrivePage::kNvmeHealth, testing_support::NvmeHealthPage()}}};
}

platform::SimulatedDrive Ata(const char* path, std::uint16_t rotation_rate) {
  using platform::DrivePage;
  return {.listing = {.path = path, .bus = platform::DriveBus::kAta, .model = "M", .serial_number = path},
          .pages = {
              {DrivePage::kAtaIdentify, testing_support::AtaIdentify({.serial = path, .rotation_rate = rotation_rate})},
              {DrivePage::kAtaSmartValues, testing_support::AtaValues({{5}, {9}})},
              {DrivePage::kAtaSmartThresholds, testing_support::AtaThresholds({{5, 10}})}}};
}

void FourDrives(benchmark::State& state) {
  const auto runtime = platform::MakeRealRuntime({});
  platform::SimulatedDrives door;
  door.Set({Nvme("/dev/nvme0n1"), Nvme("/dev/nvme1n1"), Ata("/dev/sda", 1), Ata("/dev/sdb", 7200)});
  StorageCollector::HardDiskInfoCollector collector(*runtime, door);
  using Drive = StorageCollector::HardDisk;
  std::size_t read = 0;
  const auto round = [&](auto reading) {
    for (const Drive& drive : collector.GetDrives())
      read += reading(drive);
  };
  const auto is = [](const Drive& drive, auto... kinds) { return ((drive.kind() == kinds) || ...); };
  const auto ata = [](const Drive& drive) { return drive.ReadAtaSmart(nullptr).content.has_value(); };
  using enum StorageCollector::DriveKind;
  for (auto iteration : state) {
    read = 0;
    round([&](const Drive& drive) { return is(drive, kNvme) && drive.ReadNvmeHealth(nullptr).content.has_value(); });
    round([&](const Drive& drive) { return is(drive, kSataSsd) && ata(drive); });
    for (int i = 0; i < 2; ++i)  // the record of the day, and the thresholds
      round([&](const Drive& drive) { return is(drive, kSataSsd, kAta) && ata(drive); });
  }
  if (read != 2 + 1 + 2 * 2) state.SkipWithError("not every drive was read");
}

BENCHMARK(NvmeDecoding)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);
BENCHMARK(NvmeItemData)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);
BENCHMARK(AtaDecoding)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);
BENCHMARK(AtaItemData)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);
BENCHMARK(FourDrives)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions)->MeasureProcessCPUTime();

}  // namespace

int main(int argc, char** argv) {
  const auto medians = RunTimed(argc, argv);
  const auto target = [&](const char* name, const char* what, double limit) {
    if (medians.contains(name)) PrintTarget(what, medians.at(name), "<", limit);
  };
  const auto figure = [&](const char* name, const char* what) {
    if (medians.contains(name)) PrintFigure(what, medians.at(name));
  };
  target("NvmeDecoding", "NVMe health page, decoded, us", 5);
  figure("NvmeItemData", "the same, with its item data, us");
  target("AtaDecoding", "ATA sectors of 30 attributes, decoded, us", 5);
  figure("AtaItemData", "the same, with their item data, us");
  target("FourDrives", "a day of four drives, us", 1000);
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
