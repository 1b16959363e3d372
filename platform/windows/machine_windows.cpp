#include <stdexcept>

#include "platform/local.h"
#include "platform/windows/event_log_windows.h"
#include "platform/windows/processor_load.h"
#include "platform/windows/processor_topology.h"
#include "platform/windows/setting_watcher_windows.h"
#include "platform/windows/sys.h"
#include "platform/windows/system_facts.h"

namespace platform {
namespace {

class WindowsMachine final : public Machine {
 public:
  explicit WindowsMachine(const Clock& clock) : clock_(clock) {}

  ProcessorLoadOpening OpenProcessorUtility() override {
    return windows::OpenProcessorLoad(L"\\Processor Information(*)\\% Processor Utility");
  }
  ProcessorLoadOpening OpenProcessorTime() override {
    return windows::OpenProcessorLoad(L"\\Processor(_Total)\\% Processor Time");
  }
  TopologyReading ReadProcessorTopology() override { return windows::ReadProcessorTopology(); }

  std::optional<MemoryStatus> ReadMemoryStatus(std::uint32_t* error) override {
    MEMORYSTATUSEX status{};
    status.dwLength = sizeof status;
    if (!GlobalMemoryStatusEx(&status)) {
      if (error != nullptr) *error = GetLastError();
      return std::nullopt;
    }
    return MemoryStatus{status.dwMemoryLoad, status.ullTotalPhys, status.ullAvailPhys};
  }

  std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error) override {
    constexpr DWORD kProvider = 'R' << 24 | 'S' << 16 | 'M' << 8 | 'B';
    std::vector<std::uint8_t> table;
    for (;;) {
      const UINT size = GetSystemFirmwareTable(kProvider, 0, table.data(), static_cast<DWORD>(table.size()));
      if (size == 0) {
        if (error != nullptr) *error = GetLastError();
        return {};
      }
      const bool fits = size <= table.size();
      table.resize(size);
      if (fits) return table;
    }
  }

  FirmwareFacts ReadFirmwareFacts() override { return windows::ReadFirmwareFacts(); }
  OperatingSystemFacts ReadOperatingSystemFacts() override { return windows::ReadOperatingSystemFacts(); }
  RegionFacts ReadRegionFacts() override { return windows::ReadRegionFacts(); }
  std::string CountryOfNation(const std::string& nation) override { return windows::CountryOfNation(nation); }
  std::unique_ptr<SettingWatcher> OpenSettingWatcher(Runtime&, SettingChange on_change) override {
    return windows::WatchRegistry(std::move(on_change));
  }
  std::string ReadInstallationId() override { return windows::ReadInstallationId(); }
  std::string ReadLoggedInUserId() override { return windows::ReadLoggedInUserSid(); }

  std::optional<std::int64_t> ReadBootTime() override {
    const milliseconds up(static_cast<std::int64_t>(GetTickCount64()));
    return std::chrono::floor<std::chrono::seconds>(clock_.Now() - up).time_since_epoch().count();
  }

  EventLogReading QueryEventLog(const EventLogQuery& query) override { return windows::QueryEventLog(query); }

 private:
  const Clock& clock_;
};

}  // namespace

std::unique_ptr<Machine> OpenLocalMachine(const LocalMachineOptions& options, const Clock& clock) {
  if (!options.sysroot.empty() && options.sysroot != "/") {
    throw std::invalid_argument("a recorded machine can be opened on Linux only");
  }
  return std::make_unique<WindowsMachine>(clock);
}

}  // namespace platform
