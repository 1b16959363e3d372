// The settings that Windows keeps in its registry.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "platform/settings.h"
#include "platform/windows/registry_watch.h"
#include "platform/windows/user_session.h"

namespace platform::windows {

/// A value of the registry.
struct SettingPlace {
  bool of_user = false;  ///< Below the logged-on user's part of HKEY_USERS; otherwise below HKEY_LOCAL_MACHINE.
  std::wstring path;
  std::wstring name;
};

using SettingPlaces = std::map<Setting, SettingPlace>;

/// What the watchers ask; a test plays another system.
struct SettingSeams {
  RegistryNotices& notices = LocalRegistryNotices();
  Sessions& sessions = LocalSessions();
  std::chrono::milliseconds first_pause = RegistryWatch::kFirstPause;
};

/// Only settings with a place may be added to its watchers. What `seams` refers to must outlive the settings.
std::unique_ptr<Settings> MakeSettings(SettingPlaces places, const SettingSeams& seams = {});

}  // namespace platform::windows
