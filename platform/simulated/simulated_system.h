// The operating system, its region and its settings, as a test scripts them.
#pragma once

#include <map>
#include <mutex>
#include <set>

#include "platform/fact_settings.h"
#include "platform/simulated/scripted.h"

namespace platform {

struct SimulatedSystemState {
  OperatingSystemFacts facts{.name = "Simulated OS",
                             .version = "1.0",
                             .display_language = "en-US",
                             .update_title = "1.0",
                             .update_description = "Simulated OS 1.0"};
  std::string installation_id = "00112233445566778899aabbccddeeff";
  std::string logged_in_user = "1000";
  std::optional<std::int64_t> boot_time = 1767222000;
  std::string boot_id = "01234567-89ab-cdef-0123-456789abcdef";
};

class SimulatedSystemFacts final : public SystemFacts, public Scripted<SimulatedSystemState> {
 public:
  OperatingSystemFacts ReadOperatingSystem() override { return Get().facts; }
  std::string ReadInstallationId() override { return Get().installation_id; }
  std::string ReadLoggedInUserId() override { return Get().logged_in_user; }
  std::optional<std::int64_t> ReadBootTime() override { return Get().boot_time; }
  std::string ReadBootId() override { return Get().boot_id; }
};

struct SimulatedRegionState {
  RegionFacts facts{.nation = "US", .locale_name = "en-US", .time_zone = "UTC"};
  /// The system's own table of nations; one without a row stands as it is.
  std::map<std::string, std::string> country_of_nation = {};
};

class SimulatedRegion final : public Region, public Scripted<SimulatedRegionState> {
 public:
  RegionFacts ReadFacts() override { return Get().facts; }
  std::string CountryOfNation(const std::string& nation) override;

  void SetFacts(RegionFacts facts) {
    Change([&](SimulatedRegionState& state) { state.facts = std::move(facts); });
  }
};

/// Its watchers call back on the threads that call TellAll.
class SimulatedSettings final : public Settings {
 public:
  /// Both must outlive the object.
  SimulatedSettings(SystemFacts& system, Region& region) : system_(system), region_(region) {}

  std::unique_ptr<SettingWatcher> OpenWatcher(Runtime& runtime, SettingCallbacks callbacks) override;

  /// Tells those who watch the settings, whatever changed.
  void TellAll();

 private:
  class Watcher;

  SystemFacts& system_;
  Region& region_;
  std::mutex mutex_;  ///< Guards watchers_; held while they call back, so that none ends meanwhile.
  std::set<Watcher*> watchers_;
};

}  // namespace platform
