#include "platform/linux/cpu_topology.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <tuple>

#include "platform/linux/cpu_text.h"
#include "platform/text_scan.h"

namespace platform {
namespace fs = std::filesystem;
namespace {

const fs::path kProcessors = "/sys/devices/system/cpu";

bool Contains(const std::vector<std::uint32_t>& sorted, std::uint32_t number) {
  return std::binary_search(sorted.begin(), sorted.end(), number);
}

/// Which processors belong together; older recordings and small kernels have the mask alone.
std::vector<std::uint32_t> ReadProcessors(const Sysroot& root, const fs::path& list, const fs::path& mask) {
  std::vector<std::uint32_t> processors = ParseProcessorList(root.ReadLine(list));
  return processors.empty() ? ParseProcessorMask(root.ReadLine(mask)) : processors;
}

std::vector<CacheDescription> ReadCaches(const Sysroot& root, const fs::path& folder) {
  std::vector<CacheDescription> caches;
  for (const std::uint32_t index : root.NumberedEntries(folder, "index")) {
    const fs::path cache = folder / ("index" + std::to_string(index));
    caches.push_back({.level = ParseNumber(root.ReadLine(cache / "level")).value_or(0),
                      .type = root.ReadLine(cache / "type"),
                      .bytes = ParseCacheSize(root.ReadLine(cache / "size")),
                      .shared = ReadProcessors(root, cache / "shared_cpu_list", cache / "shared_cpu_map")});
  }
  return caches;
}

ProcessorDescription ReadProcessor(const Sysroot& root, std::uint32_t number) {
  const fs::path folder = kProcessors / ("cpu" + std::to_string(number));
  const fs::path topology = folder / "topology";
  ProcessorDescription processor{.number = number,
                                 .package = ParseNumber(root.ReadLine(topology / "physical_package_id")),
                                 .die = ParseNumber(root.ReadLine(topology / "die_id")),
                                 .core = ParseNumber(root.ReadLine(topology / "core_id")),
                                 .caches = ReadCaches(root, folder / "cache")};
  // The second is the name of the first before Linux 5.3.
  for (const char* const name : {"core_cpus", "thread_siblings"}) {
    processor.core_processors = ReadProcessors(root, topology / (std::string(name) + "_list"), topology / name);
    if (Contains(processor.core_processors, number)) break;
    processor.core_processors.clear();
  }
  return processor;
}

/// Fills in what sysfs did not tell. Packages count on their own: some systems tell the core alone.
void Complete(ProcessorDescription& processor, const Cpuinfo& info) {
  const auto same = std::ranges::find(info.processors, processor.number, &CpuinfoProcessor::number);
  if (same == info.processors.end()) return;
  if (!processor.package) processor.package = same->package;
  if (!processor.core) processor.core = same->core;
}

std::uint32_t CountCores(const std::vector<ProcessorDescription>& processors) {
  std::size_t cores = 0;
  std::set<std::uint32_t> counted;  // the processors of those cores
  for (const ProcessorDescription& processor : processors) {
    if (processor.core_processors.empty() || counted.contains(processor.number)) continue;
    counted.insert(processor.core_processors.begin(), processor.core_processors.end());
    ++cores;
  }
  std::set<std::tuple<std::uint64_t, std::uint64_t, std::uint64_t>> numbered;
  for (const ProcessorDescription& processor : processors) {
    if (counted.contains(processor.number)) continue;
    if (!processor.core) {
      ++cores;
    } else {
      numbered.emplace(processor.package.value_or(0), processor.die.value_or(0), *processor.core);
    }
  }
  return static_cast<std::uint32_t>(cores + numbered.size());
}

std::vector<std::uint32_t> OnlineProcessors(const Sysroot& root, const Cpuinfo& info) {
  std::vector<std::uint32_t> online = ParseProcessorList(root.ReadLine(kProcessors / "online"));
  if (!online.empty()) return online;
  for (const CpuinfoProcessor& processor : info.processors)
    online.push_back(processor.number);
  if (!online.empty()) return online;
  for (const std::uint32_t number : root.NumberedEntries(kProcessors, "cpu")) {
    if (root.ReadLine(kProcessors / ("cpu" + std::to_string(number)) / "online") != "0") online.push_back(number);
  }
  return online;
}

}  // namespace

ProcessorTopology CountTopology(const std::vector<ProcessorDescription>& processors) {
  ProcessorTopology topology;
  topology.logical_processors = static_cast<std::uint32_t>(processors.size());
  topology.cores = CountCores(processors);
  std::set<std::tuple<std::uint64_t, std::string, std::vector<std::uint32_t>>> caches_seen;
  for (const ProcessorDescription& processor : processors) {
    for (const CacheDescription& cache : processor.caches) {
      if (cache.level != 2 && cache.level != 3) continue;
      if (cache.type == "Instruction" || !Contains(cache.shared, processor.number)) continue;
      if (!caches_seen.emplace(cache.level, cache.type, cache.shared).second) continue;
      CacheLevel& level = cache.level == 2 ? topology.l2 : topology.l3;
      level.total_bytes += cache.bytes;
      ++level.count;
    }
  }
  return topology;
}

TopologyReading ReadTopology(const Sysroot& root) {
  const Cpuinfo info = DecodeCpuinfo(root.Read("/proc/cpuinfo").value_or(""));
  std::vector<ProcessorDescription> processors;
  for (const std::uint32_t number : OnlineProcessors(root, info)) {
    ProcessorDescription processor = ReadProcessor(root, number);
    Complete(processor, info);
    processors.push_back(std::move(processor));
  }
  TopologyReading reading;
  if (processors.empty() && info.name.empty()) {
    reading.error = ENOENT;
    return reading;
  }
  reading.topology = CountTopology(processors);
  reading.topology.name = info.name;
  reading.topology.address_width = info.address_width;
  return reading;
}

}  // namespace platform
