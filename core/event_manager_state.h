// The event manager's members. Included by the manager's own sources only.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <shared_mutex>

#include "core/manager_services.h"
#include "tvk/event_manager.h"

struct EventManager::State final : Consent {
  State(EventManager& manager, const ManagerServices& given, SERVICE_STATUS_HANDLE handle);

  /// The manager as its monitors see it.
  class Identity final : public ManagerIdentity {
   public:
    explicit Identity(EventManager& manager) : manager_(manager) {}
    SERVICE_STATUS_HANDLE get_svrHandle() override { return manager_.get_svrHandle(); }
    std::wstring get_schema_ver() override { return manager_.get_schema_ver(); }
    std::wstring get_device_context_id() override { return manager_.get_device_context_id(); }
    bool get_FirstInvocation() override { return manager_.get_FirstInvocation(); }
    int DecideTVKVer(std::wstring version) override { return manager_.DecideTVKVer(std::move(version)); }
    bool get_NeedToLogDatasetContextOnChange() override { return manager_.get_NeedToLogDatasetContextOnChange(); }

   private:
    EventManager& manager_;
  };

  bool Admits(const DatasetRow& row) override;
  bool WriteIfAdmitted(const DatasetRow& row, const std::function<void()>& write) override;

  /// What wakes the notification thread. Shared, so that a notification that meets Stop signals an object that exists.
  struct Wakers {
    std::shared_ptr<platform::Event> stop;
    std::shared_ptr<platform::Event> tvk_policy;
    std::shared_ptr<platform::Event> device_context_change;
    std::shared_ptr<platform::Semaphore> telemetry_scope;
  };
  Wakers CopyWakers();

  /// The listed monitors but those that a stopper was given, which deletes them when it can. For the notification
  /// thread, which alone gives them, and which Stop waits for: what it copied lives until its handler returns, and
  /// needs no lock.
  std::list<std::pair<EventMonitorBase*, std::thread*>> CopyList();
  /// Whether the monitor's main routine has returned.
  bool HasReturned(EventMonitorBase* monitor);
  /// Signals a named event of the user agent and logs `message` with `caller`; nothing when nobody holds the event.
  void SignalGlobalEvent(const wchar_t* name, TVK::CheckedWideFormat<std::wstring> message, const std::wstring& caller);
  void RememberDevicePathChange(const TVKNotificationData& data);
  /// Whether policy and scope let the monitor of `row` run.
  static bool MayRun(const DatasetRow& row, const std::list<DataSet>& datasets, const std::wstring& scope);
  /// Reads the policy in force; false when there is none. A dataset that the table knows gets the table's spelling of
  /// its id, and of several entries for it only the first is kept: what runs at a start and what stays at a change are
  /// then decided by the same entry.
  bool ReadPolicy(TelemetryPolicy& policy);
  /// ReadPolicy, and its scope comes into force; `old_scope` receives the one before. One caller at a time, so that the
  /// scope of an older policy never replaces that of a newer one.
  bool TakePolicy(TelemetryPolicy& policy, std::wstring& old_scope);
  /// Runs `call` on the monitor and logs what it throws: the failure of one monitor is nobody else's.
  void CallMonitor(const wchar_t* caller, EventMonitorBase& monitor,
                   const std::function<void(EventMonitorBase&)>& call);

  const ManagerServices services;
  Identity identity;
  SecondTick second_tick;
  const MonitorServices monitor_services;
  TVK::Log log;
  /// A thread that stops one monitor, which is out of the list already.
  struct Stopper {
    std::wstring dataset_name;
    std::shared_ptr<platform::Event> done;  ///< Manual-reset.
    /// Nobody waits any more: the thread itself then asks for another reconciliation when it is done.
    std::shared_ptr<std::atomic<bool>> late;
    std::thread thread;
  };
  /// Waits for every stopper, but no longer than a monitor that is busy may hold up the others; joins those that are
  /// done.
  void WaitForStoppers();
  bool IsStopping(const std::wstring& dataset_name) const;

  /// The application-event monitor; it lives as long as the manager and is not in the list.
  std::unique_ptr<EventMonitorBase> application_events;

  std::mutex manager_lock;  ///< Held by Initialize and Stop for their whole run.
  std::atomic<bool> initialized = false;
  std::wstring subscription_id;                       ///< Guarded by manager_lock.
  std::unique_ptr<platform::Event> global_events[3];  ///< Guarded by manager_lock.
  std::thread notification_thread;                    ///< Guarded by manager_lock.
  std::atomic<bool> user_process_started = false;
  std::list<Stopper> stoppers;  ///< The notification thread's; Stop's once that thread has ended.

  std::mutex list_lock;  ///< The manager's second lock: guards the monitor list.
  std::list<std::pair<EventMonitorBase*, std::thread*>> monitors;
  std::set<EventMonitorBase*> returned;  ///< Monitors whose main routine has returned. Guarded by list_lock.

  std::shared_mutex consent_lock;  ///< Shared by writers, exclusive for a change of the scope in force.
  std::mutex policy_lock;          ///< Held by TakePolicy; taken before value_lock.

  std::mutex order_lock;  ///< Guards dataset_order.
  std::map<std::wstring, int> dataset_order;

  mutable std::mutex value_lock;  ///< Guards everything below.
  Wakers wakers;
  SERVICE_STATUS_HANDLE service_handle;
  TVK::DeviceIdAgent* device_id_agent = nullptr;
  std::wstring device_id;
  std::wstring legacy_device_id;
  std::wstring telemetry_scope = L"none";
  std::wstring schema_ver;
  std::wstring device_context_id;
  bool need_to_log_dataset_context_on_change = false;
  bool no_hash_network_data = false;
  bool first_invocation = false;
  bool device_path_change = false;      ///< To be told with the next change of the device context.
  unsigned device_path_news = 0;        ///< How often that was heard of on the bus.
  bool context_change_pending = false;  ///< A new device context was announced and is not told yet.
};

namespace manager_names {
inline constexpr wchar_t kTelemetryPolicyChangeEvent[] = L"Global\\TvkUserAgentTelemetryPolicyChangeEvent";
inline constexpr wchar_t kTvkPolicyChangeEvent[] = L"Global\\TvkUserAgentTVKPolicyChangeEvent";
inline constexpr wchar_t kDevicePathChangeEvent[] = L"Global\\TvkDevicePathChangeEvent";
inline constexpr wchar_t kDisplayDataset[] = L"DisplayEvent";
}  // namespace manager_names
