#include "platform/simulated/simulated_machine.h"

namespace platform {
namespace {

/// ERROR_NOT_SUPPORTED: what the machine says when it does not tell a fact.
constexpr std::uint32_t kErrorNotSupported = 50;

class SimulatedLoadReader final : public ProcessorLoadReader {
 public:
  explicit SimulatedLoadReader(std::function<std::optional<std::int32_t>()> source) : source_(std::move(source)) {}

  std::optional<std::int32_t> Sample() override { return source_(); }

 private:
  const std::function<std::optional<std::int32_t>()> source_;
};

}  // namespace

class SimulatedMachine::Watcher final : public FactSettings {
 public:
  Watcher(SimulatedMachine& machine, SettingChange on_change)
      : FactSettings(machine, std::move(on_change)), simulated_(machine) {
    const std::lock_guard lock(simulated_.watchers_mutex_);
    simulated_.watchers_.insert(this);
  }
  ~Watcher() override {
    const std::lock_guard lock(simulated_.watchers_mutex_);
    simulated_.watchers_.erase(this);
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  bool HasUser() override { return !simulated_.ReadLoggedInUserId().empty(); }

 private:
  SimulatedMachine& simulated_;
};

void SimulatedMachine::Change(const std::function<void(SimulatedMachineState&)>& change) {
  {
    const std::lock_guard lock(mutex_);
    change(state_);
  }
  const std::lock_guard lock(watchers_mutex_);
  for (Watcher* watcher : watchers_)
    watcher->TellAll();
}

std::string SimulatedMachine::CountryOfNation(const std::string& nation) {
  const auto table = Read(&SimulatedMachineState::country_of_nation);
  const auto row = table.find(nation);
  return row == table.end() ? nation : row->second;
}

std::unique_ptr<SettingWatcher> SimulatedMachine::OpenSettingWatcher(Runtime&, SettingChange on_change) {
  return std::make_unique<Watcher>(*this, std::move(on_change));
}

ProcessorLoadOpening SimulatedMachine::OpenProcessorUtility() {
  return OpenLoad(Read(&SimulatedMachineState::processor_utility_error));
}

ProcessorLoadOpening SimulatedMachine::OpenProcessorTime() {
  return OpenLoad(Read(&SimulatedMachineState::processor_time_error));
}

ProcessorLoadOpening SimulatedMachine::OpenLoad(std::int64_t error) {
  if (error != 0) return {nullptr, error};
  auto sample = [this] {
    // The script is called outside the lock: it may change the machine.
    const auto load = Read(&SimulatedMachineState::processor_load);
    return load ? load() : std::nullopt;
  };
  return {std::make_unique<SimulatedLoadReader>(std::move(sample)), 0};
}

TopologyReading SimulatedMachine::ReadProcessorTopology() {
  const std::lock_guard lock(mutex_);
  if (state_.topology_script.empty()) return state_.topology;
  TopologyReading reading = std::move(state_.topology_script.front());
  state_.topology_script.pop_front();
  return reading;
}

std::optional<MemoryStatus> SimulatedMachine::ReadMemoryStatus(std::uint32_t* error) {
  auto status = Read(&SimulatedMachineState::memory);
  if (!status && error != nullptr) *error = kErrorNotSupported;
  return status;
}

std::vector<std::uint8_t> SimulatedMachine::ReadSmbios(std::uint32_t* error) {
  auto table = Read(&SimulatedMachineState::smbios);
  if (table.empty() && error != nullptr) *error = kErrorNotSupported;
  return table;
}

FirmwareFacts SimulatedMachine::ReadFirmwareFacts() {
  return Read(&SimulatedMachineState::firmware);
}
OperatingSystemFacts SimulatedMachine::ReadOperatingSystemFacts() {
  return Read(&SimulatedMachineState::system);
}
RegionFacts SimulatedMachine::ReadRegionFacts() {
  return Read(&SimulatedMachineState::region);
}
std::string SimulatedMachine::ReadInstallationId() {
  return Read(&SimulatedMachineState::installation_id);
}
std::string SimulatedMachine::ReadLoggedInUserId() {
  return Read(&SimulatedMachineState::logged_in_user);
}
std::optional<std::int64_t> SimulatedMachine::ReadBootTime() {
  return Read(&SimulatedMachineState::boot_time);
}
EventLogReading SimulatedMachine::QueryEventLog(const EventLogQuery& query) {
  const auto log = Read(&SimulatedMachineState::event_log);
  if (log) return log(query);
  return {.records = {}, .failure = EventLogFailure::kNotSupported, .error = kErrorNotSupported};
}

}  // namespace platform
