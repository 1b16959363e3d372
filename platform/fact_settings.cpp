#include "platform/fact_settings.h"

namespace platform {

std::uint32_t FactSettings::Add(Setting setting) {
  const std::lock_guard lock(mutex_);
  added_.insert(setting);
  return 0;
}

std::uint32_t FactSettings::Read(Setting setting, std::string& value) {
  value.clear();
  if (!Added().contains(setting)) return kErrorNoSuchSetting;
  switch (setting) {
    // A system without a name is one whose file is being written; a user without a region is an ordinary one.
    case Setting::kProductName:
      value = system_.ReadOperatingSystem().name;
      return value.empty() ? kErrorNoSuchSetting : 0;
    case Setting::kBuild:
      value = system_.ReadOperatingSystem().version;
      return value.empty() ? kErrorNoSuchSetting : 0;
    case Setting::kNation:
      value = region_.ReadFacts().nation;
      return 0;
    case Setting::kLocaleName:
      value = region_.ReadFacts().locale_name;
      return 0;
  }
  return kErrorNoSuchSetting;
}

void FactSettings::TellAll() {
  for (const Setting setting : Added())
    callbacks_.changed(setting);
}

std::set<Setting> FactSettings::Added() {
  const std::lock_guard lock(mutex_);
  return added_;
}

}  // namespace platform
