// The device context: what it holds, when a new one is due, and who is told.
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "client/log/log.h"
#include "core/display_process.h"
#include "core/identity_values.h"
#include "core/manager_services.h"
#include "core/notifier.h"
#include "tvk/records.h"

namespace TVK {

/// Any thread; one Log at a time (the control thread's, and then the handlers').
class DeviceContextRecord {
 public:
  /// Everything must outlive the object.
  DeviceContextRecord(const ManagerServices& services, const TVK::Log& log, IdentityValues& identity,
                      Notifier& notifier, const DisplayProcess& display);

  /// See EventManager::LogDeviceContextData.
  void Log(bool log_it, DeviceContext& context);

  /// News of another device path came; it is to be told with the next change of the context.
  void RememberDevicePathChange();
  bool IsDevicePathChange() const;
  /// The announced context is being told to the monitors now; whether with another device path.
  bool TakeDevicePathChange();
  /// What was announced in a former life of the manager nobody tells any more.
  void ForgetAnnouncement();

 private:
  /// Fills a fresh record; false when the facts cannot be gathered.
  bool NewDeviceContextData(DeviceContext& context) const;
  void Fill(DeviceContext& context) const;
  /// The region, and the country of the system's facts; those of the last context while the region is nobody's.
  void FillRegion(const MachineInformation& machine, DeviceContext& context) const;
  /// What the store has; nothing before the first.
  std::optional<DeviceContext> Last() const;
  /// Whether any field differs that says something about the device.
  static bool CheckDeviceContextData(const DeviceContext& fresh, const DeviceContext& stored);
  void Announce(const std::wstring& id, bool needed, bool moved, unsigned path_news);

  const ManagerServices& services_;
  const TVK::Log& log_;
  IdentityValues& identity_;
  Notifier& notifier_;
  const DisplayProcess& display_;
  mutable std::mutex mutex_;  ///< Guards what follows.
  bool path_change_ = false;  ///< To be told with the next change of the context.
  unsigned path_news_ = 0;    ///< How often that was heard of on the bus.
  bool announced_ = false;    ///< A new context was announced to the notification thread, which has not told it yet.
};

}  // namespace TVK
