// A computer in memory, scripted by tests, benchmarks and simulations. Any thread may script and read it.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <set>

#include "platform/fact_settings.h"
#include "platform/machine.h"

namespace platform {

/// The settable state of a simulated machine; the defaults are a plausible small laptop.
struct SimulatedMachineState {
  /// Called for each sample of processor utility or time; empty result: the sample fails.
  std::function<std::optional<std::int32_t>()> processor_load = [] { return std::optional<std::int32_t>(5); };
  std::int64_t processor_utility_error = 0;          ///< Not 0: OpenProcessorUtility fails with it.
  std::int64_t processor_time_error = 0;             ///< Not 0: OpenProcessorTime fails with it.
  std::deque<TopologyReading> topology_script = {};  ///< Answers to give first, one a call; then `topology`.
  TopologyReading topology{.topology = {.name = "Simulated Processor 4000",
                                        .address_width = 64,
                                        .cores = 4,
                                        .logical_processors = 8,
                                        .l2 = {4u << 20, 4},
                                        .l3 = {8u << 20, 1}}};
  std::optional<MemoryStatus> memory = MemoryStatus{40, 16ull << 30, (16ull << 30) * 6 / 10};
  std::vector<std::uint8_t> smbios = {};
  FirmwareFacts firmware{.manufacturer = "Contoso",
                         .product_name = "Notebook 14",
                         .product_version = "1.0",
                         .product_family = "Notebook",
                         .product_sku = "NB14",
                         .board_manufacturer = "Contoso",
                         .board_product = "NB14G3",
                         .board_version = "Rev 2",
                         .chassis_type = "10",
                         .bios_vendor = "Contoso",
                         .bios_version = "C14ET50W (1.20 )",
                         .bios_date = "03/04/2025",
                         .bios_release = "1.20",
                         .ec_release = "1.10"};
  OperatingSystemFacts system{.name = "Simulated OS",
                              .version = "1.0",
                              .display_language = "en-US",
                              .update_title = "1.0",
                              .update_description = "Simulated OS 1.0"};
  RegionFacts region{.nation = "US", .locale_name = "en-US", .time_zone = "UTC"};
  /// The system's own table of nations; one without a row stands as it is.
  std::map<std::string, std::string> country_of_nation = {};
  std::string installation_id = "00112233445566778899aabbccddeeff";
  std::string logged_in_user = "1000";
  std::optional<std::int64_t> boot_time = 1767222000;
  /// Answers a query of the event log. Empty: the machine keeps no log.
  std::function<EventLogReading(const EventLogQuery&)> event_log;
};

class SimulatedMachine : public Machine {
 public:
  SimulatedMachine() = default;
  explicit SimulatedMachine(SimulatedMachineState state) : state_(std::move(state)) {}

  /// Changes the machine while others read it: runs `change` on the state under the machine's lock. Then tells those
  /// who watch its settings, whatever changed.
  void Change(const std::function<void(SimulatedMachineState&)>& change);

  ProcessorLoadOpening OpenProcessorUtility() override;
  ProcessorLoadOpening OpenProcessorTime() override;
  TopologyReading ReadProcessorTopology() override;
  std::optional<MemoryStatus> ReadMemoryStatus(std::uint32_t* error) override;
  std::vector<std::uint8_t> ReadSmbios(std::uint32_t* error) override;
  FirmwareFacts ReadFirmwareFacts() override;
  OperatingSystemFacts ReadOperatingSystemFacts() override;
  RegionFacts ReadRegionFacts() override;
  std::string CountryOfNation(const std::string& nation) override;
  /// The watcher calls back on the threads that change the machine.
  std::unique_ptr<SettingWatcher> OpenSettingWatcher(Runtime& runtime, SettingChange on_change) override;
  std::string ReadInstallationId() override;
  std::string ReadLoggedInUserId() override;
  std::optional<std::int64_t> ReadBootTime() override;
  EventLogReading QueryEventLog(const EventLogQuery& query) override;

 private:
  template <typename Fact>
  Fact Read(Fact SimulatedMachineState::*fact) {
    const std::lock_guard lock(mutex_);
    return state_.*fact;
  }

  ProcessorLoadOpening OpenLoad(std::int64_t error);

  class Watcher;

  std::mutex mutex_;  ///< Guards state_.
  SimulatedMachineState state_;
  std::mutex watchers_mutex_;  ///< Guards watchers_; held while they call back, so that none ends meanwhile.
  std::set<Watcher*> watchers_;
};

}  // namespace platform
