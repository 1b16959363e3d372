// Waiting for a change of one of a few settings.
#pragma once

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

  /// Before everything else, once. False when the system does not let us watch; nothing else may be called then but
  /// Stop.
  bool Init();

  /// Watches one value, which need not exist yet. Returns its index, which counts from 1, or a negative number on
  /// failure. Add first, then read: a change in between is then reported.
  int AddMonitorKey(platform::SettingRoot root, const wchar_t* subkey, const wchar_t* value_name);

  /// Blocks until a value may have changed since it was last reported, and gives its index. False after Stop.
  bool WaitForChange(unsigned long& index);

  /// The present text of a value, as wide characters with a null at the end, in `buffer`. `size` is the buffer's size
  /// in bytes and becomes that of the data; `type`, when given, becomes 1 (REG_SZ). Returns 0, or the error: 234
  /// (ERROR_MORE_DATA) when the buffer is too small, with `size` the size needed; otherwise the system's, with `size`
  /// and the buffer untouched.
  int GetKeyValue(int index, unsigned char* buffer, unsigned long* size, unsigned long* type);

  /// The name of the value and the path of its key, as they were added; empty for an index that was not given.
  std::wstring GetMonitorValueNameKey(int index) const;
  std::wstring GetMonitorPathRunKey(int index) const;

  /// Whether there is a user whose settings can be added.
  bool HasUser();

  /// Somebody logged on: the user's settings that were added are that one's from now on.
  void FollowUser();

  /// Ends the wait and every later one.
  void Stop();

 private:
  struct Key {
    std::wstring path;
    std::wstring name;
  };
  Key KeyOf(int index) const;

  platform::Settings& settings_;
  platform::Runtime& runtime_;
  const std::unique_ptr<platform::Event> stop_;
  const std::unique_ptr<platform::Event> changed_;     ///< Set while pending_ holds something.
  mutable std::mutex mutex_;                           ///< Guards pending_ and keys_.
  std::set<int> pending_;                              ///< Changes that were not reported yet.
  std::vector<Key> keys_;                              ///< Element i has the index i + 1.
  std::unique_ptr<platform::SettingWatcher> watcher_;  ///< Set by Init; ends first, since it calls back.
};

}  // namespace TVK
