#include "platform/power_manager.h"

#include <array>
#include <atomic>
#include <memory>

#include "platform/little_endian.h"
#include "platform/windows/doors_windows.h"
#include "platform/windows/driver_request.h"
#include "platform/windows/owner.h"
#include "platform/windows/power_manager_library.h"
#include "platform/windows/power_manager_logs.h"

namespace platform::windows {
namespace {

class WindowsPowerManager final : public PowerManager {
 public:
  // Opened for each question: an open device would keep its driver from being replaced.
  std::optional<std::vector<std::uint8_t>> QueryEnergyDriver(std::uint32_t code, std::uint32_t battery) override {
    if (driver_hangs_) return std::nullopt;
    const UniqueFile driver(CreateFileW(L"\\\\.\\EnergyDrv", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    if (!driver) return std::nullopt;
    std::array<std::uint8_t, sizeof(battery)> request{};
    PutLittleEndian(request, 0, battery);
    constexpr DWORD kPatience = 3'000;
    constexpr std::size_t kMostBytes = 512;
    DriverAnswer answer = AskDriverWithin(kPatience, driver.get(), code, request, kMostBytes);
    // One that hangs once is asked no more: each question would hold up whoever waits for the batteries.
    if (answer.error == ERROR_TIMEOUT) driver_hangs_ = true;
    return answer.error == ERROR_SUCCESS ? std::optional(std::move(answer.bytes)) : std::nullopt;
  }

  std::optional<SmartBatteryAnswer> ReadSmartBattery(std::uint32_t battery) override {
    return library_.ReadSmartBattery(battery);
  }
  std::optional<std::array<std::uint16_t, 4>> ReadFirmwareVersion(std::uint32_t battery) override {
    return library_.ReadFirmwareVersion(battery);
  }

  PowerManagerLogs ReadLogs(std::uint64_t least, std::uint64_t most) override {
    return ReadPowerManagerLogs(least, most);
  }

 private:
  std::atomic<bool> driver_hangs_ = false;
  PowerManagerLibrary library_;
};

}  // namespace

std::unique_ptr<PowerManager> MakePowerManager() {
  return std::make_unique<WindowsPowerManager>();
}

}  // namespace platform::windows
