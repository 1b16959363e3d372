#include "platform/batteries.h"

#include "platform/linux/doors_linux.h"
#include "platform/linux/power_supplies.h"

namespace platform {
namespace {

class LinuxBatteries final : public Batteries {
 public:
  explicit LinuxBatteries(const Sysroot& root) : root_(root) {}

  std::vector<BatteryFacts> List() override {
    std::vector<PowerSupply> supplies = ReadPowerSupplies(root_);
    const auto source = SumUpPower(supplies).source;
    std::vector<BatteryFacts> batteries;
    for (PowerSupply& supply : supplies) {
      if (supply.kind != PowerSupply::Kind::kBattery) continue;
      if (source) supply.facts.on_ac = *source == PowerSource::kAc;
      batteries.push_back(std::move(supply.facts));
    }
    return batteries;
  }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Batteries> MakeBatteries(const Sysroot& root) {
  return std::make_unique<LinuxBatteries>(root);
}

}  // namespace platform
