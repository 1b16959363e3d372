#include "platform/power.h"

#include <utility>

#include "platform/linux/doors_linux.h"
#include "platform/linux/power_supplies.h"
#include "platform/linux/power_wishes.h"

namespace platform {
namespace {

class LinuxPower final : public Power {
 public:
  LinuxPower(const Sysroot& root, std::shared_ptr<PowerWishes> wishes) : root_(root), wishes_(std::move(wishes)) {}

  PowerStatus ReadStatus() override { return ReadPower(root_).status; }

  // The kernel tells of every supply without being asked; but where it does not, somebody has to look.
  std::shared_ptr<CHPowerNotifyHandle> Register(PowerSetting /*setting*/, void* /*service*/) override {
    return wishes_->Add();
  }

 private:
  const Sysroot root_;
  const std::shared_ptr<PowerWishes> wishes_;
};

}  // namespace

std::unique_ptr<Power> MakePower(const Sysroot& root, std::shared_ptr<PowerWishes> wishes) {
  return std::make_unique<LinuxPower>(root, std::move(wishes));
}

}  // namespace platform
