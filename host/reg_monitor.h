// Waiting for a change of one of a few settings.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/runtime.h"
#include "platform/settings.h"

namespace TVK {

/// One thread waits for changes; any thread may add settings, read them and stop. Settings only ever come: an index
/// that was given stays valid.
class CRegMonitor {
 public:
  /// Both must outlive the object.
  CRegMonitor(platform::Settings& settings, platform::Runtime& runtime);
  ~CRegMonitor() = default;
  CRegMonitor(const CRegMonitor&) = delete;
  CRegMonitor& operator=(const CRegMonitor&) = delete;

  /// See SettingCallbacks::trouble.
  using Trouble = std::function<void(platform::Setting setting, std::uint32_t error)>;

  /// Before everything else, once. False when the system does not let us watch; nothing else may be called then but
  /// Stop.
  bool Init(Trouble trouble);

  /// Watches one setting, which need not exist yet. Returns its index, which counts from 1 in the order of adding, or
  /// the negative of the system's error number. Add first, then read: a change in between is then reported.
  int AddMonitorKey(platform::Setting setting);

  /// Blocks until a setting may have changed since it was last reported, and gives its index. False after Stop.
  bool WaitForChange(unsigned long& index);

  /// The present text of a setting in `value`. Returns 0 or the system's error number; `value` is then empty.
  unsigned long GetKeyValue(unsigned long index, std::wstring& value);

  /// The setting with an index that AddMonitorKey returned.
  platform::Setting SettingOf(unsigned long index) const;

  /// Whether there is a user whose settings can be added.
  bool HasUser();

  /// The users changed: the user's settings that were added are from now on those of whoever uses the machine now.
  void OnSessionChange(const platform::SessionChange& change);

  /// Ends the wait and every later one.
  void Stop();

 private:
  platform::Settings& settings_;
  platform::Runtime& runtime_;
  const std::unique_ptr<platform::Event> stop_;
  const std::unique_ptr<platform::Event> changed_;     ///< Set while pending_ holds something.
  mutable std::mutex mutex_;                           ///< Guards pending_ and keys_.
  std::set<platform::Setting> pending_;                ///< Changes that were not reported yet.
  std::vector<platform::Setting> keys_;                ///< Element i has the index i + 1.
  std::unique_ptr<platform::SettingWatcher> watcher_;  ///< Set by Init; ends first, since it calls back.
};

}  // namespace TVK
