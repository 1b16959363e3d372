#include "platform/fact_settings.h"

#include <algorithm>
#include <iterator>

#include "platform/registry_names.h"

namespace platform {

namespace names = Constants::Registry;

struct FactSettings::Fact {
  SettingRoot root;
  std::wstring_view path;
  std::wstring_view name;
  std::string (*read)(SystemFacts& system, Region& region);
};

const FactSettings::Fact FactSettings::kFacts[] = {
    {SettingRoot::kLocalMachine, names::WindowsCurrentVersionSubPath, names::OSProductName,
     [](SystemFacts& system, Region&) { return system.ReadOperatingSystem().name; }},
    {SettingRoot::kLocalMachine, names::WindowsCurrentVersionSubPath, names::WindowsCurrentVersion,
     [](SystemFacts& system, Region&) { return system.ReadOperatingSystem().version; }},
    {SettingRoot::kCurrentUser, names::CountryCodeInternationalGeoSubPath, names::CountryCodeNation,
     [](SystemFacts&, Region& region) { return region.ReadFacts().nation; }},
    {SettingRoot::kCurrentUser, names::CountryCodeInternationalSubPath, names::CountryCodeLocaleName,
     [](SystemFacts&, Region& region) { return region.ReadFacts().locale_name; }},
};

int FactSettings::Add(SettingRoot root, const std::wstring& path, const std::wstring& name) {
  const auto fact = std::ranges::find_if(
      kFacts, [&](const Fact& known) { return known.root == root && known.path == path && known.name == name; });
  if (fact == std::end(kFacts)) return -static_cast<int>(kErrorNoSuchSetting);
  const std::lock_guard lock(mutex_);
  added_.push_back(fact);
  return static_cast<int>(added_.size());
}

std::uint32_t FactSettings::Read(int index, std::string& value) {
  value.clear();
  const Fact* fact = nullptr;
  {
    const std::lock_guard lock(mutex_);
    if (index >= 1 && static_cast<std::size_t>(index) <= added_.size())
      fact = added_[static_cast<std::size_t>(index) - 1];
  }
  if (fact == nullptr) return kErrorNoSuchSetting;
  value = fact->read(system_, region_);
  // A system without a name is one whose file is being written; a user without a region is an ordinary one.
  return value.empty() && fact->root == SettingRoot::kLocalMachine ? kErrorNoSuchSetting : 0;
}

void FactSettings::TellAll() {
  std::size_t count = 0;
  {
    const std::lock_guard lock(mutex_);
    count = added_.size();
  }
  for (std::size_t index = 1; index <= count; ++index)
    on_change_(static_cast<int>(index));
}

}  // namespace platform
