#include "platform/windows/settings_windows.h"

#include <mutex>
#include <optional>
#include <set>
#include <system_error>
#include <vector>

#include "platform/windows/doors_windows.h"
#include "platform/windows/registry.h"
#include "platform/windows/registry_names.h"
#include "platform/windows/text.h"

namespace platform::windows {
namespace {

/// Settings of the user are those of the account at the console, or of the first active remote session.
class RegistryWatcher final : public SettingWatcher {
 public:
  RegistryWatcher(const SettingPlaces& places, const SettingSeams& seams, SettingCallbacks callbacks)
      : places_(places), seams_(seams), callbacks_(std::move(callbacks)) {}

  std::uint32_t Add(Setting setting) override {
    const SettingPlace& place = places_.at(setting);
    const std::lock_guard lock(mutex_);
    if (place.of_user && !user_) user_ = FindLoggedInUser(seams_.sessions, ended_);
    if (place.of_user && !user_) return ERROR_NO_SUCH_USER;
    if (watches_.contains(setting)) return ERROR_SUCCESS;
    try {
      const RegistryWatch::Callbacks callbacks{
          .changed = [this, setting] { callbacks_.changed(setting); },
          .trouble = [this, setting](DWORD error) { callbacks_.trouble(setting, error); }};
      RegistryWatch& watch = *watches_
                                  .emplace(setting, std::make_unique<RegistryWatch>(seams_.notices, RootOf(place),
                                                                                    seams_.first_pause, callbacks))
                                  .first->second;
      watch.Follow(KeyOf(place));
    } catch (const std::system_error& error) {
      return static_cast<std::uint32_t>(error.code().value());
    }
    return ERROR_SUCCESS;
  }

  std::uint32_t Read(Setting setting, std::string& value) override {
    value.clear();
    const SettingPlace& place = places_.at(setting);
    std::wstring key;
    {
      const std::lock_guard lock(mutex_);
      if (!watches_.contains(setting) || (place.of_user && !user_)) return kErrorNoSuchSetting;
      key = KeyOf(place);
    }
    return ReadRegistryText(RootOf(place), key, place.name.c_str(), value);
  }

  bool HasUser() override {
    const std::lock_guard lock(mutex_);
    return FindLoggedInUser(seams_.sessions, ended_).has_value();
  }

  void OnSessionChange(const SessionChange& change) override {
    // Another session is connected, or nobody is there: then who was there last is followed on.
    if (change.kind == SessionChangeKind::kConsoleDisconnect || change.kind == SessionChangeKind::kRemoteDisconnect) {
      return;
    }
    std::vector<Setting> followed;
    {
      const std::lock_guard lock(mutex_);
      // The user of a session that ends may still be asked for a while, but must no longer be followed.
      if (change.kind == SessionChangeKind::kLogoff) {
        ended_.insert(change.session);
        if (user_ && user_->session == change.session) Leave();
      } else if (change.kind == SessionChangeKind::kLogon) {
        ended_.erase(change.session);
      }
      followed = Follow();
      // A key that was put back from a copy tells nobody. Now it is looked at without a wake-up of its own.
      if (change.kind == SessionChangeKind::kLogon) {
        for (const auto& [setting, watch] : watches_)
          followed.push_back(setting);
      }
    }
    for (const Setting setting : followed)
      callbacks_.changed(setting);
  }

 private:
  static HKEY RootOf(const SettingPlace& place) { return place.of_user ? HKEY_USERS : HKEY_LOCAL_MACHINE; }

  // These need the lock. The first one, of a user's setting, also a user.
  std::wstring KeyOf(const SettingPlace& place) const {
    return place.of_user ? WideFromUtf8(user_->sid) + L"\\" + place.path : place.path;
  }

  // Windows unloads the user's part of the registry by force while a key of it is open.
  void Leave() {
    user_.reset();
    for (const auto& [setting, watch] : watches_) {
      if (places_.at(setting).of_user) watch->Release();
    }
  }

  // The settings that are followed anew. While nobody is there they stay the last user's.
  std::vector<Setting> Follow() {
    std::vector<Setting> followed;
    std::optional<SessionUser> user = FindLoggedInUser(seams_.sessions, ended_);
    if (!user || user == user_) return followed;
    user_ = std::move(user);
    for (const auto& [setting, watch] : watches_) {
      if (!places_.at(setting).of_user) continue;
      watch->Follow(KeyOf(places_.at(setting)));
      followed.push_back(setting);
    }
    return followed;
  }

  const SettingPlaces& places_;
  const SettingSeams seams_;
  const SettingCallbacks callbacks_;
  std::mutex mutex_;                                           ///< Guards what follows.
  std::optional<SessionUser> user_;                            ///< Whose settings are followed, once one was added.
  std::set<DWORD> ended_;                                      ///< The sessions whose users have logged off.
  std::map<Setting, std::unique_ptr<RegistryWatch>> watches_;  ///< They end first: they call back.
};

class WindowsSettings final : public Settings {
 public:
  WindowsSettings(SettingPlaces places, const SettingSeams& seams) : places_(std::move(places)), seams_(seams) {}

  std::unique_ptr<SettingWatcher> OpenWatcher(Runtime& /*runtime*/, SettingCallbacks callbacks) override {
    return std::make_unique<RegistryWatcher>(places_, seams_, std::move(callbacks));
  }

 private:
  const SettingPlaces places_;
  const SettingSeams seams_;
};

}  // namespace

std::unique_ptr<Settings> MakeSettings(SettingPlaces places, const SettingSeams& seams) {
  return std::make_unique<WindowsSettings>(std::move(places), seams);
}

std::unique_ptr<Settings> MakeSettings() {
  namespace names = Constants::Registry;
  return MakeSettings({
      {Setting::kProductName, {false, names::WindowsCurrentVersionSubPath, names::OSProductName}},
      {Setting::kBuild, {false, names::WindowsCurrentVersionSubPath, names::WindowsCurrentVersion}},
      {Setting::kNation, {true, names::CountryCodeInternationalGeoSubPath, names::CountryCodeNation}},
      {Setting::kLocaleName, {true, names::CountryCodeInternationalSubPath, names::CountryCodeLocaleName}},
  });
}

}  // namespace platform::windows
