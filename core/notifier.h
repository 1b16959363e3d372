// The signals of the manager: what wakes its notification thread, and what tells the user agent.
#pragma once

#include <array>
#include <memory>
#include <mutex>

#include "client/log/log.h"
#include "platform/runtime.h"

namespace TVK {

/// Events that the service makes and the user agent opens.
inline constexpr wchar_t kTelemetryPolicyChangeEvent[] = L"Global\\TvkUserAgentTelemetryPolicyChangeEvent";
inline constexpr wchar_t kTvkPolicyChangeEvent[] = L"Global\\TvkUserAgentTVKPolicyChangeEvent";
inline constexpr wchar_t kDevicePathChangeEvent[] = L"Global\\TvkDevicePathChangeEvent";

/// Any thread.
class Notifier {
 public:
  /// Both must outlive the object. `has_user_agent`: whether this system has one that could be told.
  Notifier(platform::Runtime& runtime, const Log& log, bool has_user_agent)
      : runtime_(runtime), log_(log), has_user_agent_(has_user_agent) {}

  /// What wakes the notification thread. Null: there is none now. Shared, so that news that meets Stop signals an
  /// object that exists.
  struct WakeUps {
    std::shared_ptr<platform::Event> stop;  ///< Manual-reset: the start of the user agent waits for it too.
    std::shared_ptr<platform::Event> tvk_policy;
    std::shared_ptr<platform::Event> device_context_change;
    std::shared_ptr<platform::Semaphore> telemetry_scope;  ///< At most one, so that changes are handled together.
    std::shared_ptr<platform::Event> shortage;             ///< The system refused something.
  };
  WakeUps wake_ups() const;

  // These make the objects anew or drop them; they throw std::system_error when the system gives no more.
  void MakeStopEvent();
  void MakePolicyWakeUps();
  void MakeDeviceContextWakeUp();
  /// Wakes the notification thread, which tries again later; nothing where there is none. Any thread.
  void TellShortage() const;
  void DropStopEvent();
  void DropWakeUps();  ///< All but the stop event.

  /// Makes the three named events; the first that cannot be made is logged, and those after it are not tried.
  void CreateGlobalEvents();
  void CloseGlobalEvents();

  /// Signals a named event, for which others than a user agent may wait, too; nothing when nobody holds it. Where there
  /// is a user agent that is logged before, with `log_it`.
  template <typename LogIt>
  void SignalUserAgent(const wchar_t* name, const LogIt& log_it) {
    const platform::NamedEventResult opened = runtime_.OpenNamedEvent(name);
    if (opened.event == nullptr) return;
    if (has_user_agent_) log_it();
    opened.event->Set();
  }

 private:
  platform::Runtime& runtime_;
  const Log& log_;
  const bool has_user_agent_;
  mutable std::mutex mutex_;  ///< Guards what follows.
  WakeUps wake_ups_;
  std::array<std::unique_ptr<platform::Event>, 3> global_events_;
};

}  // namespace TVK
