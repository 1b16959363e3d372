#include "core/policy_view.h"

#include <algorithm>

#include "framework/event_monitor_base.h"

namespace TVK {

PolicyView::PolicyView(platform::Runtime& runtime, IConfigAgent& config, const DatasetTable& datasets,
                       const MachineInformation& machine, const Log& log)
    : runtime_(runtime),
      config_(config),
      datasets_(datasets),
      machine_(machine),
      log_(log),
      write_ended_(runtime.MakeEvent(platform::EventReset::kAuto)) {}

PolicyView::Policy PolicyView::Read() {
  return Take(nullptr);
}

PolicyView::Policy PolicyView::ReadWithScope(std::wstring& old_scope) {
  return Take(&old_scope);
}

PolicyView::Policy PolicyView::Take(std::wstring* old_scope) {
  const std::lock_guard taking(take_mutex_);
  TelemetryPolicy read;
  if (!config_.GetTelemetryPolicy(read)) return nullptr;
  auto policy = std::make_shared<const NormalisedPolicy>(Normalise(read, datasets_));
  {
    const std::lock_guard lock(mutex_);
    policy_ = policy;
    if (old_scope != nullptr) *old_scope = std::exchange(scope_, policy->scope);
  }
  if (old_scope != nullptr) {
    if (!policy->unknown_scope.empty()) {
      log_.e(L"%s: check telemetry_scope=?none failed %s", L"EventManager::OnNotification", policy->unknown_scope);
    }
    EventMonitorBase::SetTelemetryScope(policy->scope);
  }
  return policy;
}

PolicyView::Policy PolicyView::in_force() const {
  const std::lock_guard lock(mutex_);
  return policy_;
}

std::wstring PolicyView::scope() const {
  const std::lock_guard lock(mutex_);
  return scope_;
}

std::wstring PolicyView::DecidingScope() const {
  const std::lock_guard lock(mutex_);
  return IsNarrowerScope(policy_->scope, scope_) ? policy_->scope : scope_;
}

void PolicyView::set_scope(const std::wstring& scope) {
  const std::lock_guard lock(mutex_);
  scope_ = NormalisedScope(scope);
}

DatasetDecision PolicyView::Decide(const DatasetRow& row, DecisionMoment moment) const {
  // The facts of the device may have to be read from it: not under the lock, and only when a filter looks at them.
  const EligibilityFilter device(moment == DecisionMoment::kRunning ? DeviceTraits() : machine_.traits());
  const std::lock_guard lock(mutex_);
  return DecideLocked(row, device, moment);
}

DatasetDecision PolicyView::DecideLocked(const DatasetRow& row, const EligibilityFilter& device,
                                         DecisionMoment moment) const {
  return TVK::Decide(row, policy_->SearchUpdatedConfig(row.id), *policy_, scope_, device, moment);
}

bool PolicyView::Admits(const DatasetRow& row) {
  return Decide(row, DecisionMoment::kRunning).runs();
}

bool PolicyView::WriteIfAdmitted(const DatasetRow& row, const std::function<void()>& write) {
  std::list<const DatasetRow*>::iterator place;
  {
    const std::lock_guard lock(mutex_);
    if (!DecideLocked(row, EligibilityFilter({}), DecisionMoment::kRunning).runs()) return false;
    place = writes_.insert(writes_.end(), &row);
  }
  try {
    write();
  } catch (...) {
    EndWrite(place);
    throw;
  }
  EndWrite(place);
  return true;
}

void PolicyView::EndWrite(std::list<const DatasetRow*>::iterator write) {
  const std::lock_guard lock(mutex_);
  const bool excluded = !DecideLocked(**write, EligibilityFilter({}), DecisionMoment::kRunning).runs();
  writes_.erase(write);
  if (excluded) write_ended_->Set();
}

const DatasetRow* PolicyView::FindExcludedWrite() const {
  const std::lock_guard lock(mutex_);
  const EligibilityFilter no_device({});
  const auto excluded = std::ranges::find_if(
      writes_, [&](const DatasetRow* row) { return !DecideLocked(*row, no_device, DecisionMoment::kRunning).runs(); });
  return excluded == writes_.end() ? nullptr : *excluded;
}

void PolicyView::WaitForExcludedWrites(const wchar_t* caller, platform::Waitable* stop) {
  constexpr std::chrono::seconds kPatience(1);
  const platform::SteadyTime latest = runtime_.clock().Steady() + kPatience;
  platform::Waitable* const objects[] = {write_ended_.get(), stop};
  while (const DatasetRow* const row = FindExcludedWrite()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(latest - runtime_.clock().Steady());
    if (left.count() <= 0) {
      log_.e(L"%s: a record of %s is still being written; no other one follows it", caller, row->name);
      return;
    }
    if (runtime_.WaitAny({objects, stop == nullptr ? 1u : 2u}, left) == 1) return;
  }
}

}  // namespace TVK
