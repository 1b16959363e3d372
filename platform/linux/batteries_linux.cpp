#include "platform/batteries.h"

#include "platform/linux/doors_linux.h"
#include "platform/linux/power_supplies.h"

namespace platform {
namespace {

class LinuxBatteries final : public Batteries {
 public:
  explicit LinuxBatteries(const Sysroot& root) : root_(root) {}

  std::vector<BatteryFacts> List() override { return ReadPower(root_).batteries; }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Batteries> MakeBatteries(const Sysroot& root) {
  return std::make_unique<LinuxBatteries>(root);
}

}  // namespace platform
