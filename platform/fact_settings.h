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
  FactSettings(SystemFacts& system, Region& region, SettingChange on_change)
      : system_(system), region_(region), on_change_(std::move(on_change)) {}

  std::uint32_t Add(Setting setting) override;
  std::uint32_t Read(Setting setting, std::string& value) override;
  void FollowUser() override { TellAll(); }

  /// Calls back for every setting that was added.
  void TellAll();

 private:
  std::set<Setting> Added();

  SystemFacts& system_;
  Region& region_;
  const SettingChange on_change_;
  std::mutex mutex_;  ///< Guards added_.
  std::set<Setting> added_;
};

}  // namespace platform
