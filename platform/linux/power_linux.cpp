#include "platform/power.h"

#include "platform/linux/doors_linux.h"
#include "platform/linux/power_supply_text.h"

namespace platform {
namespace {

class LinuxPower final : public Power {
 public:
  explicit LinuxPower(const Sysroot& root) : root_(root) {}

  PowerStatus ReadStatus() override {
    const std::filesystem::path folder = "/sys/class/power_supply";
    std::vector<PowerSupply> supplies;
    for (const std::string& name : root_.FolderNames(folder)) {
      const std::filesystem::path supply = folder / name;
      supplies.push_back(
          DecodePowerSupply(root_.Read(supply / "uevent").value_or(""), root_.ReadLine(supply / "type")));
    }
    return SumUpPower(supplies);
  }

  // The kernel tells of every supply without being asked.
  std::shared_ptr<CHPowerNotifyHandle> Register(PowerSetting /*setting*/, void* /*service*/) override {
    return std::make_shared<CHPowerNotifyHandle>();
  }

 private:
  const Sysroot root_;
};

}  // namespace

std::unique_ptr<Power> MakePower(const Sysroot& root) {
  return std::make_unique<LinuxPower>(root);
}

}  // namespace platform
