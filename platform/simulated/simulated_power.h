// Power and the system's events, as a test scripts them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "platform/power.h"
#include "platform/simulated/scripted.h"
#include "platform/system_events.h"

namespace platform {

/// A laptop that runs from mains, its battery full.
class SimulatedPower final : public Power, public Scripted<PowerStatus> {
 public:
  SimulatedPower()
      : Scripted(PowerStatus{
            .source = PowerSource::kAc, .percent = 100, .level = ChargeLevel::kHigh, .has_battery = true}) {}

  PowerStatus ReadStatus() override { return Get(); }

  std::shared_ptr<CHPowerNotifyHandle> Register(PowerSetting setting, void* /*service*/) override {
    if (on_registration) on_registration(setting);
    if (refused == setting) return nullptr;
    const auto handle = std::make_shared<CHPowerNotifyHandle>();
    const std::lock_guard lock(mutex_);
    registrations_.push_back(handle);
    return handle;
  }
  /// Registrations that are held.
  std::size_t registered() const {
    const std::lock_guard lock(mutex_);
    return registrations_.size() - static_cast<std::size_t>(std::ranges::count_if(
                                       registrations_, [](const auto& each) { return each.expired(); }));
  }

  // Both before others use the object.
  std::optional<PowerSetting> refused = {};                   ///< Register fails for it.
  std::function<void(PowerSetting setting)> on_registration;  ///< Register calls it before it returns.

 private:
  mutable std::mutex mutex_;  ///< Guards what follows.
  std::vector<std::weak_ptr<CHPowerNotifyHandle>> registrations_;
};

/// Its sources call back on the threads that call Raise. Any thread.
class SimulatedSystemEvents final : public SystemEvents {
 public:
  SystemEventOpening Open(Runtime& runtime, SystemEventCallback callback, void* service) override;

  /// Tells `event` to every source that is open. Changes nothing else of the machine.
  void Raise(const SystemEvent& event);

 private:
  class Source;

  std::mutex mutex_;  ///< Guards sources_; held while they call back, so that none ends meanwhile.
  std::set<Source*> sources_;
};

}  // namespace platform
