#include "platform/settings.h"

#include <deque>
#include <mutex>

#include "platform/windows/doors_windows.h"
#include "platform/windows/owner.h"
#include "platform/windows/registry.h"
#include "platform/windows/text.h"
#include "platform/windows/user_session.h"

namespace platform::windows {
namespace {

// What a change of the present user finds while nobody is logged on.
constexpr int kNobody = -ERROR_NO_SUCH_USER;

/// Settings of the user are those of the account at the console, or of the first active remote session.
class RegistryWatcher final : public SettingWatcher {
 public:
  explicit RegistryWatcher(SettingChange on_change) : on_change_(std::move(on_change)) {}

  ~RegistryWatcher() override {
    {
      const std::lock_guard lock(mutex_);
      ending_ = true;
      for (Setting& setting : settings_)
        SetThreadpoolWait(setting.wait, nullptr, nullptr);
    }
    for (Setting& setting : settings_) {
      WaitForThreadpoolWaitCallbacks(setting.wait, TRUE);
      CloseThreadpoolWait(setting.wait);
    }
  }

  int Add(SettingRoot root, const std::wstring& path, const std::wstring& name) override {
    const bool of_user = root == SettingRoot::kCurrentUser;
    const std::wstring user = of_user ? WideFromUtf8(ReadLoggedInUserSid()) : std::wstring();
    if (of_user && user.empty()) return kNobody;
    const std::lock_guard lock(mutex_);
    Setting& setting = settings_.emplace_back(*this, static_cast<int>(settings_.size()) + 1, of_user, path, name);
    setting.user = user;
    setting.wait = CreateThreadpoolWait(&RegistryWatcher::OnSignal, &setting, nullptr);
    DWORD error = setting.wait == nullptr ? GetLastError() : ERROR_SUCCESS;
    if (error == ERROR_SUCCESS) error = Arm(setting);
    if (error == ERROR_SUCCESS) return setting.index;
    // Nothing is armed, so no callback of it runs.
    if (setting.wait != nullptr) CloseThreadpoolWait(setting.wait);
    settings_.pop_back();
    return -static_cast<int>(error);
  }

  std::uint32_t Read(int index, std::string& value) override {
    value.clear();
    std::wstring key;
    std::wstring name;
    bool of_user = false;
    {
      const std::lock_guard lock(mutex_);
      if (index < 1 || static_cast<std::size_t>(index) > settings_.size()) return kErrorNoSuchSetting;
      const Setting& setting = settings_[static_cast<std::size_t>(index) - 1];
      key = setting.Key();
      name = setting.name;
      of_user = setting.of_user;
    }
    return ReadRegistryText(of_user ? HKEY_USERS : HKEY_LOCAL_MACHINE, key, name.c_str(), value);
  }

  bool HasUser() override { return !ReadLoggedInUserSid().empty(); }

  void FollowUser() override {
    const std::wstring user = WideFromUtf8(ReadLoggedInUserSid());
    if (user.empty()) return;
    std::vector<int> changed;
    {
      const std::lock_guard lock(mutex_);
      for (Setting& setting : settings_) {
        if (!setting.of_user) continue;
        setting.user = user;
        Arm(setting);
        changed.push_back(setting.index);
      }
    }
    for (const int index : changed)
      on_change_(index);
  }

 private:
  struct Setting {
    Setting(RegistryWatcher& its_watcher, int its_index, bool its_of_user, std::wstring its_path, std::wstring its_name)
        : watcher(its_watcher),
          index(its_index),
          of_user(its_of_user),
          path(std::move(its_path)),
          name(std::move(its_name)) {}

    std::wstring Key() const { return of_user ? user + L"\\" + path : path; }

    RegistryWatcher& watcher;
    const int index;
    const bool of_user;
    const std::wstring path;
    const std::wstring name;
    // Under the watcher's lock.
    std::wstring user;  ///< Security identifier, which names the user's part of HKEY_USERS.
    PTP_WAIT wait = nullptr;
    UniqueKernelHandle signal;
    UniqueRegistryKey key;
  };

  static void CALLBACK OnSignal(PTP_CALLBACK_INSTANCE, void* context, PTP_WAIT, TP_WAIT_RESULT) {
    auto& setting = *static_cast<Setting*>(context);
    RegistryWatcher& watcher = setting.watcher;
    {
      const std::lock_guard lock(watcher.mutex_);
      if (watcher.ending_) return;
      // Before anybody reads: what changes after the reading is told again.
      watcher.Arm(setting);
    }
    watcher.on_change_(setting.index);
  }

  // Needs the lock. Waits for the next change of the key, or, as long as there is none, of the nearest one above it
  // that exists: keys come late when a user's part of the registry is loaded, and go with it.
  DWORD Arm(Setting& setting) {
    // A key that is closed signals its event: each setting has its own, and at worst is looked at once too often.
    UniqueKernelHandle signal(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    if (!signal) return GetLastError();
    constexpr DWORD kWhat = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_THREAD_AGNOSTIC;
    UniqueRegistryKey key;
    const HKEY root = setting.of_user ? HKEY_USERS : HKEY_LOCAL_MACHINE;
    const std::wstring wanted = setting.Key();
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
    SetThreadpoolWait(setting.wait, signal.get(), nullptr);
    setting.key = std::move(key);
    setting.signal = std::move(signal);
    return ERROR_SUCCESS;
  }

  const SettingChange on_change_;
  std::mutex mutex_;              ///< Guards everything below and what the settings say.
  std::deque<Setting> settings_;  ///< Where each lies does not change: the pool refers to it.
  bool ending_ = false;
};

class WindowsSettings final : public Settings {
 public:
  std::unique_ptr<SettingWatcher> OpenWatcher(Runtime& /*runtime*/, SettingChange on_change) override {
    return std::make_unique<RegistryWatcher>(std::move(on_change));
  }
};

}  // namespace

std::unique_ptr<Settings> MakeSettings() {
  return std::make_unique<WindowsSettings>();
}

}  // namespace platform::windows
