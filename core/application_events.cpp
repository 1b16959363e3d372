#include "core/application_events.h"

#include "client/channel/session_recorder.h"
#include "client/log/guarded_thread.h"
#include "client/text/string.h"

namespace TVK {
namespace {

std::string ReasonOf(const DatasetDecision& decision, const DatasetRow& row, const std::wstring& scope) {
  std::string reason = "the policy in force does not admit " + String::UTF16ToUTF8(row.name) + ": ";
  reason += ReasonName(decision.reason);
  const std::wstring detail = Explain(decision, row, scope);
  if (!detail.empty()) reason += " (" + String::UTF16ToUTF8(detail) + ')';
  return reason;
}

}  // namespace

ApplicationEvents::ApplicationEvents(const MonitorServices& services, const DatasetTable& datasets,
                                     const PolicyView& policy, const Log& log, const std::atomic<bool>& running)
    : services_(services),
      policy_(policy),
      log_(log),
      running_(running),
      dataset_(datasets.FindByRule(DatasetRule::kApplication)) {
  if (dataset_ == nullptr) return;
  CallLogged(log_, {L"EventManager", dataset_->row.name}, [&] { monitor_ = dataset_->factory(services_); });
}

TakenEvent ApplicationEvents::Take(const std::wstring& item_name, const ItemData& data, EventSender sender) {
  auto* const monitor = dynamic_cast<TVKEventMonitorBase*>(monitor_.get());
  // Before that there is no device context that a record could name.
  if (monitor == nullptr || !running_ || services_.manager.get_device_context_id().empty()) {
    return {SessionRecorder::kChannelFailed, "the event manager does not run, or is only starting"};
  }
  const DatasetRow& row = dataset_->row;
  const DatasetDecision decision = policy_.Decide(row, DecisionMoment::kStart);
  if (!decision.runs()) return {DatasetMonitor::kWithheld, ReasonOf(decision, row, policy_.DecidingScope())};
  if (new_device_owed_.exchange(false)) monitor->OnDeviceContextChanges(true);
  TakenEvent taken = monitor->TakeEvent(item_name, data, sender);
  if (taken.result == DatasetMonitor::kWithheld) taken.reason = "the policy in force does not admit it any more";
  return taken;
}

void ApplicationEvents::OnDeviceContextChanges(bool new_device) {
  if (monitor_ == nullptr) return;
  if (policy_.Decide(dataset_->row, DecisionMoment::kStart).runs()) {
    monitor_->OnDeviceContextChanges(new_device);
  } else if (new_device) {
    new_device_owed_ = true;
  }
}

}  // namespace TVK
