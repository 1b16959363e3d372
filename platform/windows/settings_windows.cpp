#include "platform/windows/settings_windows.h"

#include <mutex>

#include "platform/windows/doors_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/registry.h"
#include "platform/windows/registry_names.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

namespace platform::windows {
namespace {

/// Settings of the user are those of the account at the console, or of the first active remote session.
class RegistryWatcher final : public SettingWatcher {
 public:
  RegistryWatcher(const SettingPlaces& places, SettingChange on_change)
      : places_(places), on_change_(std::move(on_change)) {}

  ~RegistryWatcher() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
      for (auto& [setting, watched] : watched_)
        SetThreadpoolWait(watched.wait, nullptr, nullptr);
    }
    for (auto& [setting, watched] : watched_) {
      WaitForThreadpoolWaitCallbacks(watched.wait, TRUE);
      CloseThreadpoolWait(watched.wait);
    }
  }

  std::uint32_t Add(Setting setting) override {
    const SettingPlace& place = places_.at(setting);
    const std::wstring user = place.of_user ? WideFromUtf8(ReadLoggedInUserSid()) : std::wstring();
    if (place.of_user && user.empty()) return ERROR_NO_SUCH_USER;
    const std::lock_guard lock(mutex_);
    const auto [entry, added] = watched_.try_emplace(setting, *this, setting, place);
    if (!added) return ERROR_SUCCESS;
    Watched& watched = entry->second;
    watched.user = user;
    watched.wait = CreateThreadpoolWait(&RegistryWatcher::OnSignal, &watched, nullptr);
    DWORD error = watched.wait == nullptr ? GetLastError() : ERROR_SUCCESS;
    if (error == ERROR_SUCCESS) error = Arm(watched);
    if (error == ERROR_SUCCESS) return ERROR_SUCCESS;
    // Nothing is armed, so no callback of it runs.
    if (watched.wait != nullptr) CloseThreadpoolWait(watched.wait);
    watched_.erase(entry);
    return error;
  }

  std::uint32_t Read(Setting setting, std::string& value) override {
    value.clear();
    std::wstring key;
    {
      const std::lock_guard lock(mutex_);
      const auto entry = watched_.find(setting);
      if (entry == watched_.end()) return kErrorNoSuchSetting;
      key = entry->second.Key();
    }
    const SettingPlace& place = places_.at(setting);
    return ReadRegistryText(place.of_user ? HKEY_USERS : HKEY_LOCAL_MACHINE, key, place.name.c_str(), value);
  }

  bool HasUser() override { return !ReadLoggedInUserSid().empty(); }

  void FollowUser() override {
    const std::wstring user = WideFromUtf8(ReadLoggedInUserSid());
    if (user.empty()) return;
    std::vector<Setting> changed;
    {
      const std::lock_guard lock(mutex_);
      for (auto& [setting, watched] : watched_) {
        if (!watched.place.of_user) continue;
        watched.user = user;
        Arm(watched);
        changed.push_back(setting);
      }
    }
    for (const Setting setting : changed)
      on_change_(setting);
  }

 private:
  struct Watched {
    Watched(RegistryWatcher& its_watcher, Setting its_setting, const SettingPlace& its_place)
        : watcher(its_watcher), setting(its_setting), place(its_place) {}

    std::wstring Key() const { return place.of_user ? user + L"\\" + place.path : place.path; }

    RegistryWatcher& watcher;
    const Setting setting;
    const SettingPlace& place;
    // Under the watcher's lock.
    std::wstring user;  ///< Security identifier, which names the user's part of HKEY_USERS.
    PTP_WAIT wait = nullptr;
    UniqueKernelHandle signal;
    UniqueRegistryKey key;
  };

  static void CALLBACK OnSignal(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT, TP_WAIT_RESULT) {
    auto& watched = *static_cast<Watched*>(context);
    RegistryWatcher& watcher = watched.watcher;
    {
      const std::lock_guard lock(watcher.mutex_);
      if (watcher.ending_) return;
      // Before anybody reads: what changes after the reading is told again.
      watcher.Arm(watched);
    }
    watcher.on_change_(watched.setting);
  }

  // Needs the lock. Waits for the next change of the key, or, as long as there is none, of the nearest one above it
  // that exists: keys come late when a user's part of the registry is loaded, and go with it.
  DWORD Arm(Watched& watched) {
    // A key that is closed signals its event: each setting has its own, and at worst is looked at once too often.
    UniqueKernelHandle signal(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!signal) return GetLastError();
    constexpr DWORD kWhat = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_THREAD_AGNOSTIC;
    UniqueRegistryKey key;
    const HKEY root = watched.place.of_user ? HKEY_USERS : HKEY_LOCAL_MACHINE;
    const std::wstring wanted = watched.Key();
    std::wstring path = wanted;
    std::wstring missing;  // the key below `path` that was not there
    for (;;) {
      LSTATUS status = RegOpenKeyExW(root, path.c_str(), 0, KEY_NOTIFY, key.Receive());
      if (status == ERROR_SUCCESS) status = RegNotifyChangeKeyValue(key.get(), FALSE, kWhat, signal.get(), TRUE);
      if (status == ERROR_SUCCESS) {
        // One that came before its parent was watched is told by nobody.
        UniqueRegistryKey come;
        if (missing.empty() || RegOpenKeyExW(root, missing.c_str(), 0, KEY_NOTIFY, come.Receive()) != ERROR_SUCCESS)
          break;
        missing.clear();
        path = wanted;
        continue;
      }
      // A key may go between the two calls.
      const bool gone = status == ERROR_FILE_NOT_FOUND || status == ERROR_KEY_DELETED;
      if (!gone || path.empty()) return static_cast<DWORD>(status);
      missing = path;
      const std::size_t end = path.rfind(L'\\');
      path.erase(end == std::wstring::npos ? 0 : end);
    }
    SetThreadpoolWait(watched.wait, signal.get(), nullptr);
    watched.key = std::move(key);
    watched.signal = std::move(signal);
    return ERROR_SUCCESS;
  }

  const SettingPlaces& places_;
  const SettingChange on_change_;
  std::mutex mutex_;                    ///< Guards everything below and what the entries say.
  std::map<Setting, Watched> watched_;  ///< Where each lies does not change: the pool refers to it.
  bool ending_ = false;
};

class WindowsSettings final : public Settings {
 public:
  explicit WindowsSettings(SettingPlaces places) : places_(std::move(places)) {}

  std::unique_ptr<SettingWatcher> OpenWatcher(Runtime& /*runtime*/, SettingChange on_change) override {
    return std::make_unique<RegistryWatcher>(places_, std::move(on_change));
  }

 private:
  const SettingPlaces places_;
};

}  // namespace

std::unique_ptr<Settings> MakeSettings(SettingPlaces places) {
  return std::make_unique<WindowsSettings>(std::move(places));
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
