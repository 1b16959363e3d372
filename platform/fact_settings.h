// The settings of a machine that keeps no registry: facts that it tells, under the names that the registry has for
// them.
#pragma once

#include <mutex>
#include <string>
#include <vector>

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

  int Add(SettingRoot root, const std::wstring& path, const std::wstring& name) override;
  std::uint32_t Read(int index, std::string& value) override;
  void FollowUser() override { TellAll(); }

  /// Calls back for every setting that was added.
  void TellAll();

 private:
  struct Fact;
  static const Fact kFacts[];

  SystemFacts& system_;
  Region& region_;
  const SettingChange on_change_;
  std::mutex mutex_;                ///< Guards added_.
  std::vector<const Fact*> added_;  ///< Element i has the index i + 1.
};

}  // namespace platform
