#include "platform/batteries.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "platform/battery_class.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/driver_request.h"
#include "platform/windows/owner.h"
#include "platform/windows/text.h"

#include <devguid.h>
#include <setupapi.h>

namespace platform::windows {
namespace {

struct DeviceListTraits {
  using Handle = HDEVINFO;
  static Handle None() { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) { SetupDiDestroyDeviceInfoList(handle); }
};
using UniqueDeviceList = Owner<DeviceListTraits>;

/// A firmware's answers take tenths of a second at most.
constexpr DWORD kPatience = 3'000;

std::string InterfacePath(HDEVINFO devices, SP_DEVICE_INTERFACE_DATA& place) {
  DWORD size = 0;
  SetupDiGetDeviceInterfaceDetailW(devices, &place, nullptr, 0, &size, nullptr);
  if (size < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) return {};
  std::vector<std::max_align_t> buffer(size / sizeof(std::max_align_t) + 1);
  auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
  detail->cbSize = sizeof(*detail);
  const bool told = SetupDiGetDeviceInterfaceDetailW(devices, &place, detail, size, nullptr, nullptr) != FALSE;
  return told ? Utf8FromWide(detail->DevicePath) : std::string();
}

// The slots of batteries, full and empty, in an order of their own: that of the system may change.
std::vector<std::string> SlotPaths() {
  // The class's GUID is that of its device interface too (GUID_DEVICE_BATTERY).
  const GUID& interface_class = GUID_DEVCLASS_BATTERY;
  const UniqueDeviceList devices(
      SetupDiGetClassDevsW(&interface_class, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE));
  std::vector<std::string> paths;
  SP_DEVICE_INTERFACE_DATA place{};
  place.cbSize = sizeof(place);
  constexpr DWORD kMost = 64;
  for (DWORD i = 0; devices && i < kMost; ++i) {
    if (!SetupDiEnumDeviceInterfaces(devices.get(), nullptr, &interface_class, i, &place)) break;
    if (std::string path = InterfacePath(devices.get(), place); !path.empty()) paths.push_back(std::move(path));
  }
  std::ranges::sort(paths);
  return paths;
}

std::optional<BatteryFacts> Read(const std::string& path) {
  const UniqueFile slot(CreateFileW(WideFromUtf8(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
  if (!slot) return std::nullopt;
  return ReadBattery([&](std::uint32_t code, std::span<const std::uint8_t> request, std::size_t size) {
    return AskDriverWithin(kPatience, slot.get(), code, request, size);
  });
}

class WindowsBatteries final : public Batteries {
 public:
  std::vector<BatteryFacts> List() override {
    const std::vector<std::string> paths = SlotPaths();
    const std::vector<std::string> slots = BatterySlots(paths);
    std::vector<BatteryFacts> batteries;
    for (std::size_t i = 0; i < paths.size(); ++i) {
      std::optional<BatteryFacts> battery = Read(paths[i]);
      if (!battery) continue;
      battery->slot = slots[i];
      battery->number = static_cast<std::uint32_t>(i);
      battery->path = paths[i];
      batteries.push_back(std::move(*battery));
    }
    return batteries;
  }
};

}  // namespace

std::unique_ptr<Batteries> MakeBatteries() {
  return std::make_unique<WindowsBatteries>();
}

}  // namespace platform::windows
