// How long does one reading of the batteries take?
//
//   TwoBatteries   the door of a recorded notebook with an adapter and two batteries; target: below 200 us
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "bench/targets.h"
#include "bench/timed_runs.h"
#include "platform/batteries.h"
#include "platform/local.h"

namespace {

// What the kernel's ACPI driver tells of a battery.
constexpr char kBattery[] =
    "POWER_SUPPLY_TYPE=Battery\nPOWER_SUPPLY_STATUS=Discharging\nPOWER_SUPPLY_PRESENT=1\n"
    "POWER_SUPPLY_TECHNOLOGY=Li-poly\nPOWER_SUPPLY_CYCLE_COUNT=213\nPOWER_SUPPLY_VOLTAGE_MIN_DESIGN=11520000\n"
    "POWER_SUPPLY_VOLTAGE_NOW=12345000\nPOWER_SUPPLY_POWER_NOW=8000000\nPOWER_SUPPLY_ENERGY_FULL_DESIGN=50500000\n"
    "POWER_SUPPLY_ENERGY_FULL=47310000\nPOWER_SUPPLY_ENERGY_NOW=30000000\nPOWER_SUPPLY_CAPACITY=63\n"
    "POWER_SUPPLY_CAPACITY_LEVEL=Normal\nPOWER_SUPPLY_MODEL_NAME=CELL-57A\nPOWER_SUPPLY_MANUFACTURER=Acme\n"
    "POWER_SUPPLY_SERIAL_NUMBER=00427\n";

void TwoBatteries(benchmark::State& state) {
  const std::filesystem::path root = std::filesystem::current_path() / "battery_benchmark.tmp";
  const auto write = [&](const char* name, const char* uevent) {
    const std::filesystem::path folder = root / "sys/class/power_supply" / name;
    std::filesystem::create_directories(folder);
    std::ofstream(folder / "uevent") << uevent;
  };
  write("AC", "POWER_SUPPLY_TYPE=Mains\nPOWER_SUPPLY_ONLINE=0\n");
  write("BAT0", kBattery);
  write("BAT1", kBattery);
  const auto runtime = platform::MakeRealRuntime({});
  const auto machine = platform::OpenLocalMachine({.sysroot = root}, runtime->clock());
  std::size_t batteries = 0;
  for (auto iteration : state)
    batteries = machine->batteries().List().size();
  std::filesystem::remove_all(root);
  if (batteries != 2) state.SkipWithError("not every battery was read");
}

BENCHMARK(TwoBatteries)->Unit(benchmark::kMicrosecond)->Repetitions(kRepetitions);

}  // namespace

int main(int argc, char** argv) {
  const auto medians = RunTimed(argc, argv);
  if (medians.contains("TwoBatteries")) {
    PrintTarget("two batteries, found and read once, us", medians.at("TwoBatteries"), "<", 200);
  }
  return AllTargetsMet() ? EXIT_SUCCESS : EXIT_FAILURE;
}
