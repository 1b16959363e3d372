// How fast does what drives answer become the item data of a record, and what does a day's reading take?
//
//   NvmeDecoding  a SMART / Health Information page; target: below 5 us
//   NvmeItemData  the same, with its item data
//   AtaDecoding   the sectors of 30 attributes and of their thresholds, and the search for failing ones; target: below
//                 5 us
//   AtaItemData   the same, with its item data
//   FourDrives    a day of a machine with four drives: every dataset of drives' health finds them in files as the
//                 kernel's and asks its own, each on a thread of its own; the processor's time beyond the kernel's;
//                 target: below 1 ms
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "bench/targets.h"
#include "bench/timed_runs.h"
#include "client/storage/hard_disk_info_collector.h"
#include "monitors/storage/pcie_nvme_smart_info.h"
#include "monitors/storage/smart_info.h"
#include "platform/linux/doors_linux.h"
#include "platform/local.h"
#include "testing/drive_sectors.h"
#include "testing/recorded_tree.h"

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

/// The file of a drive that answers at once.
class AnsweringDevice final : public platform::DriveDevice {
 public:
  explicit AnsweringDevice(const testing_support::Sector& identify) : identify_(identify) {}

  platform::DeviceReply SendScsi(std::span<const std::uint8_t> command, std::span<std::uint8_t> in) override {
    // CHECK POWER MODE, whose answer, the ATA registers, comes as sense data: active (SAT-4, 12.2.2.7).
    if (in.empty()) {
      return {.status = 2, .sense = {0x72, 1, 0, 0x1D, 0, 0, 0, 14, 9, 12, 0, 0, 0, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0x50}};
    }
    const std::uint8_t feature = command[4];
    const bool identify = command[14] == 0xEC;
    return Give(identify ? identify_ : feature == 0xD0 ? values_ : thresholds_, in);
  }
  platform::DeviceReply SendNvme(const platform::NvmeCommand&, std::span<std::uint8_t> in) override {
    return Give(in.size() == 4096 ? identify_ : health_, in);
  }

 private:
  static platform::DeviceReply Give(const testing_support::Sector& page, std::span<std::uint8_t> in) {
    std::ranges::copy(page, in.begin());
    return {.bytes = in.size()};
  }

  const testing_support::Sector& identify_;
  const testing_support::Sector values_ = testing_support::AtaValues({{5}, {9}});
  const testing_support::Sector thresholds_ = testing_support::AtaThresholds({{5, 10}});
  const testing_support::Sector health_ = testing_support::NvmeHealthPage();
};

/// A drive as the kernel tells of it.
void Describe(const platform::RecordedTree& tree, const std::string& way, bool nvme,
              const testing_support::Sector& identify) {
  const std::string folder = "/sys/devices/pci0000:00/" + way;
  const auto write = [&](const char* file, const std::string& text) { tree.Write(folder + '/' + file, text); };
  write("size", "1000215216\n");
  write("removable", "0\n");
  write("hidden", "0\n");
  write("queue/rotational", "0\n");
  write("device/model", "Contoso 512\n");
  if (nvme) {
    write("device/serial", way + '\n');
    write("device/firmware_rev", "1.0\n");
    write("device/device/power/runtime_status", "active\n");
  } else {
    write("device/vendor", "ATA     \n");
    write("device/rev", "1.0\n");
    write("device/vpd_pg80", std::string({0, '\x80', 0, static_cast<char>(way.size())}) + way);
    std::string page89(60, '\0');
    page89[1] = '\x89';
    page89[56] = '\xEC';
    write("device/vpd_pg89", page89.append(identify.begin(), identify.end()));
    write("device/power/runtime_status", "active\n");
  }
  std::filesystem::create_directories(tree.root() / "sys/block");
  std::filesystem::create_symlink("../devices/pci0000:00/" + way,
                                  tree.root() / "sys/block" / way.substr(way.rfind('/') + 1));
}

/// Of this process, its threads that ended included, without what the kernel did for it; to the hundredth second.
double UserMicroseconds() {
  std::ifstream file("/proc/self/stat");
  std::string text;
  std::getline(file, text);
  std::istringstream fields(text.substr(text.rfind(')') + 1));
  std::string skipped;
  for (int field = 3; field < 14; ++field)
    fields >> skipped;
  double ticks = 0;
  fields >> ticks;
  return ticks * 10'000;
}

void FourDrives(benchmark::State& state) {
  const auto runtime = platform::MakeRealRuntime({});
  const platform::RecordedTree tree;
  std::map<std::string, testing_support::Sector> identities;
  const auto add = [&](const std::string& name, const std::string& way, testing_support::Sector identify, bool nvme) {
    Describe(tree, way + name, nvme, identify);
    identities["/dev/" + name] = std::move(identify);
  };
  const auto ata_identity = [](const char* serial, std::uint16_t rate) {
    return testing_support::AtaIdentify({.model = "Contoso 512", .serial = serial, .rotation_rate = rate});
  };
  add("nvme0n1", "nvme/nvme0/", testing_support::Sector(4096), true);
  add("nvme1n1", "nvme/nvme1/", testing_support::Sector(4096), true);
  add("sda", "ata1/host0/target0:0:0/0:0:0:0/block/", ata_identity("1", 1), false);
  add("sdb", "ata2/host1/target1:0:0/1:0:0:0/block/", ata_identity("2", 7200), false);
  const auto door = platform::MakeDrives(platform::Sysroot(tree.root()), [&](const std::string& path) {
    return platform::DeviceOpening{std::make_unique<AnsweringDevice>(identities.at(path))};
  });
  StorageCollector::HardDiskInfoCollector collector(*runtime, *door);
  using Drive = StorageCollector::HardDisk;
  std::size_t read = 0;
  const auto round = [&](auto reading) {
    for (const Drive& drive : collector.GetDrives())
      read += reading(drive);
  };
  const auto is = [](const Drive& drive, auto... kinds) { return ((drive.kind() == kinds) || ...); };
  const auto ata = [](const Drive& drive) { return drive.ReadAtaSmart(nullptr).content.has_value(); };
  using enum StorageCollector::DriveKind;
  const double before = UserMicroseconds();
  for (auto iteration : state) {
    read = 0;
    round([&](const Drive& drive) { return is(drive, kNvme) && drive.ReadNvmeHealth(nullptr).content.has_value(); });
    round([&](const Drive& drive) { return is(drive, kSataSsd) && ata(drive); });
    round([&](const Drive& drive) { return is(drive, kSataSsd, kAta) && ata(drive); });
  }
  state.counters["user"] = benchmark::Counter(UserMicroseconds() - before, benchmark::Counter::kAvgIterations);
  if (read != 2 + 1 + 2) state.SkipWithError("not every drive was read");
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
  target("FourDrives/user", "a day of four drives, us", 1000);
  figure("FourDrives", "the same, with the kernel's time, us");
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
