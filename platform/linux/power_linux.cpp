#include "platform/power.h"

#include "platform/linux/doors_linux.h"
#include "platform/linux/power_supplies.h"

namespace platform {
namespace {

class LinuxPower final : public Power {
 public:
  explicit LinuxPower(const Sysroot& root) : root_(root) {}

  PowerStatus ReadStatus() override { return SumUpPower(ReadPowerSupplies(root_)); }

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
