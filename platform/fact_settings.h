// The settings of a machine that tells them as facts.
#pragma once

#include <mutex>
#include <set>
#include <string>

#include "platform/region.h"
#include "platform/settings.h"
#include "platform/system_facts.h"

namespace platform {

/// A watcher but for the watching: whoever sees changes calls TellAll. Any thread.
class FactSettings : public SettingWatcher {
 public:
  /// Both must outlive the object.
  FactSettings(SystemFacts& system, Region& region, SettingCallbacks callbacks)
      : system_(system), region_(region), callbacks_(std::move(callbacks)) {}

  std::uint32_t Add(Setting setting) override;
  std::uint32_t Read(Setting setting, std::string& value) override;
  void OnSessionChange(const SessionChange& /*change*/) override { TellAll(); }

  /// Calls back for every setting that was added.
  void TellAll();

 private:
  std::set<Setting> Added();

  SystemFacts& system_;
  Region& region_;
  const SettingCallbacks callbacks_;
  std::mutex mutex_;  ///< Guards added_.
  std::set<Setting> added_;
};

}  // namespace platform
