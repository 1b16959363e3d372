#include "platform/simulated/simulated_system.h"

namespace platform {

std::string SimulatedRegion::CountryOfNation(const std::string& nation) {
  const auto table = Get().country_of_nation;
  const auto row = table.find(nation);
  return row == table.end() ? nation : row->second;
}

class SimulatedSettings::Watcher final : public FactSettings {
 public:
  Watcher(SimulatedSettings& settings, SettingCallbacks callbacks)
      : FactSettings(settings.system_, settings.region_, std::move(callbacks)), settings_(settings) {
    const std::lock_guard lock(settings_.mutex_);
    settings_.watchers_.insert(this);
  }
  ~Watcher() override {
    const std::lock_guard lock(settings_.mutex_);
    settings_.watchers_.erase(this);
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  bool HasUser() override { return !settings_.system_.ReadLoggedInUserId().empty(); }

 private:
  SimulatedSettings& settings_;
};

std::unique_ptr<SettingWatcher> SimulatedSettings::OpenWatcher(Runtime& /*runtime*/, SettingCallbacks callbacks) {
  return std::make_unique<Watcher>(*this, std::move(callbacks));
}

void SimulatedSettings::TellAll() {
  const std::lock_guard lock(mutex_);
  for (Watcher* watcher : watchers_)
    watcher->TellAll();
}

}  // namespace platform
