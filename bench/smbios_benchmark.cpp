// How fast is a server's SMBIOS table decoded?
//
//   Decode64Slots     MemoryInfo::GetMemoryInfo over a table of 64 memory modules      target: below 20 us
//   DmidecodeProcess  `dmidecode --from-dump FILE -t 17` over the same table, as a process that a shell becomes
//
// The second stands beside the first as what a program pays that asks the field's tool instead of reading the table.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/targets.h"
#include "bench/timed_runs.h"
#include "client/smbios/smbios_tool.h"
#include "monitors/system/memory_info.h"
#include "platform/files.h"
#include "testing/smbios_builder.h"

namespace {

constexpr int kSlots = 64;

testing_support::Table ServerTable() {
  testing_support::Table table;
  table.Add(testing_support::MemoryArray({.error_correction = 6, .capacity_kb = 8ull << 30}));
  for (int slot = 0; slot < kSlots; ++slot) {
    table.Add(testing_support::MemoryDevice(
        {.handle = static_cast<std::uint16_t>(0x1100 + slot),
         .size = 0x7FFF,
         .extended_size = 65536,
         .locator = "CPU" + std::to_string(slot / 32) + "_DIMM_" + std::to_string(slot % 32),
         .bank = "NODE " + std::to_string(slot / 32),
         .length = 0x5C}));
  }
  return table.End();
}

void Decode64Slots(benchmark::State& state) {
  SMBiosTool tool(ServerTable().Rsmb());
  tool.Initialize();
  MemoryInfo info(tool);
  for (auto iteration : state)
    benchmark::DoNotOptimize(info.GetMemoryInfo());
  if (info.slots().size() != kSlots) state.SkipWithError("not every slot was decoded");
}

void DmidecodeProcess(benchmark::State& state) {
  const std::filesystem::path file = std::filesystem::current_path() / "smbios_benchmark.tmp";
  const auto dump = ServerTable().Dump64();
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(dump.data()), static_cast<std::streamsize>(dump.size()));
  const std::string command =
      std::string("exec ") + TVK_DMIDECODE + " --from-dump '" + platform::PathToUtf8(file) + "' -t 17 >/dev/null";
  for (auto iteration : state) {
    if (std::system(command.c_str()) != 0) {  // NOLINT(cert-env33-c,concurrency-mt-unsafe): one thread, own words
      state.SkipWithError("dmidecode failed");
      break;
    }
  }
  std::filesystem::remove(file);
}

BENCHMARK(Decode64Slots)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);
BENCHMARK(DmidecodeProcess)->Unit(benchmark::kMicrosecond)->UseRealTime()->Repetitions(kRepetitions);

}  // namespace

int main(int argc, char** argv) {
  const auto medians = RunTimed(argc, argv);
  if (medians.contains("Decode64Slots")) {
    PrintTarget("SMBIOS table of 64 modules, decoded, us", medians.at("Decode64Slots"), "<", 20);
  }
  if (medians.contains("DmidecodeProcess")) {
    PrintFigure("  the same by a dmidecode process, us", medians.at("DmidecodeProcess"));
  }
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
