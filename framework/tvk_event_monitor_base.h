// The base of the monitor through which other components of the client write their own item events.
#pragma once

#include <string>

#include "framework/dataset_monitor.h"

namespace TVK {

/// Who hands an event over: an administrator or the service's own account, or a user who is logged on.
enum class EventSender { kPrivileged, kUser };

/// What became of one.
struct TakenEvent {
  int result = 0;         ///< 0 when it is durable in the store, else as SessionRecorder's operations give it.
  std::string reason;     ///< Why it was not written, for the sender; empty for 0.
  bool too_many = false;  ///< For the quota.
};

}  // namespace TVK

/// Driven by its callers instead of by a schedule: there is nothing to initialise and nothing to end.
class TVKEventMonitorBase : public TVK::DatasetMonitor {
 public:
  using DatasetMonitor::DatasetMonitor;

  void Initialize() override {}
  void UnInitialize() override = 0;
  void StopMonitor() override {}
  void StartMonitor(std::wstring /*name*/) override {}
  std::wstring GetName() const override { return L"TVKEvent"; }

  /// Writes an event of the sender's own, and with the first one what every dataset writes of itself. Nothing of one
  /// that is refused is kept. Any thread.
  virtual TVK::TakenEvent TakeEvent(const std::wstring& item_name, const ItemData& data, TVK::EventSender sender) = 0;
};
