// News from the bus, and the thread that acts on it.
#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

#include "client/bus/notification_data.h"
#include "core/application_events.h"
#include "core/dataset_log.h"
#include "core/reconciler.h"

namespace TVK {

class Notifications {
 public:
  /// `log_device_context`: writes the device context anew when it changed, through the manager's virtual operation.
  /// `application_events` is in no list of monitors. `dataset_log` is told behind each change.
  Notifications(const ManagerParts& parts, Reconciler& reconciler, std::function<void()> log_device_context,
                ApplicationEvents& application_events, DatasetLog& dataset_log);

  /// Control thread. Start logs what keeps the thread from starting; End wakes and joins it, if there is one.
  void Start();
  void End();
  /// Whether there is a thread. Control thread.
  bool IsRunning() const { return thread_.joinable(); }
  /// Waits for every monitor that is being stopped. Control thread, behind End.
  void JoinStoppers();

  /// Classifies a notification and wakes the thread; on the bus's thread.
  void OnNotification(TVKNotificationData& data);

  // The handlers. They run one at a time, whoever calls them.
  void OnTvkPolicyChanges();
  void OnTelemetryScopeChanges();
  void OnDeviceContextChanges();

 private:
  void OnTelemetryPolicyNotification(TVKNotificationData& data);
  void OnTvkPolicyNotification(TVKNotificationData& data);
  void NotificationProcessorThread();
  void RunHandler(platform::WaitCode index);
  void TryAgain();
  bool EndsWithin(platform::Event& stop, std::chrono::seconds pause) const;

  const ManagerParts parts_;
  Reconciler& reconciler_;
  const std::function<void()> log_device_context_;
  ApplicationEvents& application_events_;
  DatasetLog& dataset_log_;
  std::mutex
      handler_mutex_;   ///< Held by a handler for its whole run, and by JoinStoppers; guards reconciler_'s stoppers.
  std::thread thread_;  ///< The control thread's.
};

}  // namespace TVK
