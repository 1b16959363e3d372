#include "platform/linux/power_supplies.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

std::vector<PowerSupply> ReadSupplies(const Sysroot& root) {
  const std::filesystem::path folder = "/sys/class/power_supply";
  std::vector<PowerSupply> supplies;
  for (const std::string& name : root.FolderNames(folder)) {
    const std::filesystem::path path = folder / name;
    PowerSupply supply = DecodePowerSupply(root.Read(path / "uevent").value_or(""), [&](const std::string& attribute) {
      return root.Read(path / attribute).value_or("");
    });
    if (supply.kind == PowerSupply::Kind::kBattery) {
      supply.facts.slot = name;
      supply.facts.path = path;
    }
    supplies.push_back(std::move(supply));
  }
  return supplies;
}

}  // namespace

PowerReading ReadPower(const Sysroot& root) {
  std::vector<PowerSupply> supplies = ReadSupplies(root);
  PowerReading reading{.status = SumUpPower(supplies),
                       .has_adapter = std::ranges::any_of(supplies, [](const PowerSupply& supply) {
                         return supply.kind == PowerSupply::Kind::kAdapter;
                       })};
  for (PowerSupply& supply : supplies) {
    if (supply.kind != PowerSupply::Kind::kBattery) continue;
    if (reading.status.source) supply.facts.on_ac = *reading.status.source == PowerSource::kAc;
    reading.batteries.push_back(std::move(supply.facts));
  }
  return reading;
}

}  // namespace platform
