#include "platform/batteries.h"

#include "platform/windows/doors_windows.h"

namespace platform::windows {
namespace {

class WindowsBatteries final : public Batteries {
 public:
  std::vector<BatteryFacts> List() override { return {}; }
};

}  // namespace

std::unique_ptr<Batteries> MakeBatteries() {
  return std::make_unique<WindowsBatteries>();
}

}  // namespace platform::windows
