// How much of a processor does the report of a full store take?
//
//   Report   BuildReport on 500,000 records of 35 days: usage, memory, batteries, drives      target: below 10 s
//            what the process takes more of memory meanwhile                                   target: below 16 MiB
#include <malloc.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "bench/targets.h"
#include "client/report/report_builder.h"
#include "client/store/event_data_logging.h"
#include "client/store/record_reader.h"
#include "platform/simulated/virtual_runtime.h"
#include "testing/temp_folder.h"

namespace {

constexpr int kRecords = 500'000;
constexpr int kAtATime = 500;
constexpr int kDrives = 4;
constexpr int kRuns = 3;

struct Kind {
  const wchar_t* dataset;
  const wchar_t* item;
  ItemData data;
};

std::vector<Kind> Kinds() {
  return {
      {L"CPUEvent", L"ReadUsagePerInterval", {{L"CPUUtilization", L"37"}}},
      {L"CPUEvent", L"CPUNearCapacity", {{L"CPUUtilization", L"99"}}},
      {L"MemoryEvent", L"MemoryUsagePerInterval", {{L"FreePhysicalMemory", L"4242MB"}, {L"VisibleMemory", L"16000MB"}}},
      {L"BatteryEvent",
       L"BatteryUsagePerInterval",
       {{L"BatteryChargeRemaining", L"81"}, {L"FullChargeCapacity", L"45000"}}},
      {L"SMARTEvent",
       L"ReadSMARTPerDay",
       {{L"Temperature", LR"({ "raw": "1638440","normalized": "60","threshold": "10","worst": "9"})"},
        {L"LifeLeft", LR"({ "raw": "0","normalized": "88","threshold": "10","worst": "9"})"}}},
  };
}

void AddContexts(TVK::EventDataLogging& store) {
  for (int drive = 0; drive < kDrives; ++drive) {
    DatasetContext context;
    context.set_dataset_id(L"SMARTEvent");
    context.set_dataset_name(L"SMARTEvent");
    context.set_dataset_context_id(std::to_wstring(drive));
    context.set_item_data({{L"Model", L"Drive " + std::to_wstring(drive)}});
    Check(store.LogDatasetContext(context, std::to_wstring(drive)) == 0, "a context is written");
  }
}

void FillStore(const std::filesystem::path& file, platform::VirtualRuntime& world) {
  TVK::EventDataLogging store({.file = file, .limits = {.max_bytes = 4ull << 30}}, world.clock());
  AddContexts(store);
  const std::vector<Kind> kinds = Kinds();
  for (int made = 0; made < kRecords;) {
    std::vector<TVK::ItemEventWithState> events;
    for (; events.size() < kAtATime; ++made) {
      const Kind& kind = kinds[static_cast<std::size_t>(made) % kinds.size()];
      ItemEvent event;
      event.set_dataset_id(kind.dataset);
      event.set_dataset_name(kind.dataset);
      event.set_item_id(kind.item);
      event.set_item_name(kind.item);
      event.set_schema_ver(L"2.0");
      event.set_item_data(kind.data);
      if (event.dataset_name() == L"SMARTEvent") event.set_dataset_context_id(std::to_wstring(made % kDrives));
      events.push_back({std::move(event), {}});
    }
    Check(store.LogItemEvents(events) == 0, "records are written");
    world.AdvanceBy(std::chrono::minutes(50));
  }
}

// What the process has had of memory at most since the last call, in MiB.
double HighestMemory() {
  double kib = 0;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) kib = std::stod(line.substr(6));
  }
  std::ofstream("/proc/self/clear_refs") << '5';
  return kib / 1024;
}

// Of the processor.
double SecondsOfReport(const std::filesystem::path& file, const platform::Clock& world) {
  const std::clock_t begin = std::clock();
  std::string problem;
  TVK::Report report;
  const auto reader = TVK::RecordReader::Open(file, problem);
  Check(reader != nullptr && TVK::BuildReport(*reader, {}, world, report, problem), "the store is read");
  const double passed = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
  Check(report.records == kRecords + kDrives && report.timelines.size() == 5 && report.gaps.empty(),
        "the report is of that store");
  return passed;
}

}  // namespace

int main() {
  const TempFolder folder;
  const std::filesystem::path file = folder.path() / TVK::kStoreFileName;
  platform::VirtualRuntime world;
  FillStore(file, world);
  ::malloc_trim(0);  // what filling it took is no room for the report
  HighestMemory();
  const double before = HighestMemory();
  std::vector<double> seconds;
  for (int run = 0; run < kRuns; ++run)
    seconds.push_back(SecondsOfReport(file, world.clock()));
  const double memory = HighestMemory() - before;
  PrintTarget("report of 500,000 records, s of processor time", Median(seconds), "<", 10);
  PrintTarget("the same, memory, MiB", memory, "<", 16);
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
