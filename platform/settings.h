// Tells when a setting that the system keeps for the machine or for its user may have changed. Settings go by the place
// that Windows' registry has for them (registry_names.h), on every system.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace platform {

class Runtime;

enum class SettingRoot {
  kLocalMachine,  ///< HKEY_LOCAL_MACHINE.
  kCurrentUser,   ///< HKEY_CURRENT_USER of the user who is logged on at the machine, not of the service's account.
};

/// What Read gives where there is no such setting, or one that holds no text (ERROR_FILE_NOT_FOUND, on every system).
inline constexpr std::uint32_t kErrorNoSuchSetting = 2;

/// Called with the index of a setting that may have changed, also without a true change, on a thread of the watcher or
/// of whoever changed it. It must not block, not throw and not end the watcher.
using SettingChange = std::function<void(int index)>;

/// Made by Settings::OpenWatcher. Any thread may call it. Nothing wakes up while nothing changes.
class SettingWatcher {
 public:
  SettingWatcher() = default;
  SettingWatcher(const SettingWatcher&) = delete;
  SettingWatcher& operator=(const SettingWatcher&) = delete;

  /// When it returns, no callback runs and none will.
  virtual ~SettingWatcher() = default;

  /// Watches the value `name` under `path`; neither needs to exist yet. Returns its index, which counts from 1, or the
  /// negative of the system's error number. A change after the return is never missed: add first, then read.
  virtual int Add(SettingRoot root, const std::wstring& path, const std::wstring& name) = 0;

  /// The present text of a setting, as UTF-8, in `value`. Returns 0 or the system's error number; `value` is then
  /// empty.
  virtual std::uint32_t Read(int index, std::string& value) = 0;

  /// Whether there is a user whose settings can be watched now: on Windows, somebody is logged on. Where the settings
  /// are the same for everybody, there always is.
  virtual bool HasUser() = 0;

  /// Somebody has logged on: the settings of the user are that one's from now on. Calls back for each of them.
  virtual void FollowUser() = 0;
};

/// Any thread.
class Settings {
 public:
  Settings() = default;
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;
  virtual ~Settings() = default;

  /// Watches settings of the system and its user. Null when the system refuses. The settings and `runtime` must outlive
  /// the watcher.
  virtual std::unique_ptr<SettingWatcher> OpenWatcher(Runtime& runtime, SettingChange on_change) = 0;
};

}  // namespace platform
