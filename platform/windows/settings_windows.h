// The settings that Windows keeps in its registry.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/settings.h"

namespace platform::windows {

/// A value of the registry.
struct SettingPlace {
  bool of_user = false;  ///< Below the logged-on user's part of HKEY_USERS; otherwise below HKEY_LOCAL_MACHINE.
  std::wstring path;
  std::wstring name;
};

using SettingPlaces = std::map<Setting, SettingPlace>;

/// Only settings with a place may be added to its watchers.
std::unique_ptr<Settings> MakeSettings(SettingPlaces places);

}  // namespace platform::windows
