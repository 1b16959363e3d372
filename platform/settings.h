// Tells when a setting that the system keeps for the machine or for its user may have changed.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/system_event.h"

namespace platform {

class Runtime;

/// The texts are those of OperatingSystemFacts and RegionFacts.
enum class Setting {
  kProductName,  ///< Of the system.
  kBuild,        ///< Of the system.
  kNation,       ///< Of the user who is logged on at the machine, not of the service's account.
  kLocaleName,   ///< Of the same user.
};

/// What Read gives where there is no such setting, one that was not added, or one that holds no text
/// (ERROR_FILE_NOT_FOUND, on every system).
inline constexpr std::uint32_t kErrorNoSuchSetting = 2;

/// Both are called on threads of the watcher, of whoever changed a setting, or of the watcher's caller. They must not
/// block, not throw, not call the watcher and not end it.
struct SettingCallbacks {
  /// The setting may have changed; called also without a true change.
  std::function<void(Setting setting)> changed;
  /// A setting cannot be watched because of the system's error `error`; it is tried again with patience, so this comes
  /// once. 0: it is watched again, and `changed` follows.
  std::function<void(Setting setting, std::uint32_t error)> trouble;
};

/// Made by Settings::OpenWatcher. Any thread may call it. Nothing wakes up while nothing changes.
class SettingWatcher {
 public:
  SettingWatcher() = default;
  SettingWatcher(const SettingWatcher&) = delete;
  SettingWatcher& operator=(const SettingWatcher&) = delete;

  /// When it returns, no callback runs and none will.
  virtual ~SettingWatcher() = default;

  /// Watches a setting, which need not exist yet; one that is watched already stays so. Returns 0, or the system's
  /// error number: then it was not added. A change after the return is never missed: add first, then read.
  virtual std::uint32_t Add(Setting setting) = 0;

  /// The present text of a setting that was added, as UTF-8, in `value`. Returns 0 or the system's error number;
  /// `value` is then empty.
  virtual std::uint32_t Read(Setting setting, std::string& value) = 0;

  /// Whether there is a user whose settings can be watched now: on Windows, somebody is logged on. Where the settings
  /// are the same for everybody, there always is.
  virtual bool HasUser() = 0;

  /// The users of the machine changed: where settings are a user's, they are from now on those of whoever uses the
  /// machine now, and `changed` is called for each of them. Of a user who logs off nothing is held open when it
  /// returns.
  virtual void OnSessionChange(const SessionChange& change) = 0;
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
  virtual std::unique_ptr<SettingWatcher> OpenWatcher(Runtime& runtime, SettingCallbacks callbacks) = 0;
};

}  // namespace platform
