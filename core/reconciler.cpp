#include "core/reconciler.h"

#include <map>
#include <system_error>

#include "client/log/guarded_thread.h"
#include "client/store/kept_state.h"
#include "client/text/string.h"

namespace TVK {

namespace {

// The monitor of the application events stays for the manager's whole life and is asked for its consent at each event.
bool HasListedMonitor(const DatasetRow& row) {
  return row.rule != DatasetRule::kApplication;
}

}  // namespace

void ManagerParts::Remark(const std::string& line) const {
  if (services.remarks) CallLogged(log, L"EventManager: a listener of remarks", [&] { services.remarks(line); });
}

Reconciler::Reconciler(const ManagerParts& parts, ById run, ById stop)
    : parts_(parts), run_(std::move(run)), stop_(std::move(stop)), stoppers_(parts.services.runtime, parts.log) {}

bool Reconciler::AddMonitor(const Dataset& dataset, MonitorList::Entry& entry) {
  const auto tell = [this, name = String::UTF16ToUTF8(dataset.row.name)](const std::string& reason) {
    parts_.Remark("the monitor of " + name + " ended with an error, and collects nothing any more: " + reason);
  };
  entry = std::make_shared<MonitorEntry>(parts_.services.runtime, parts_.log, dataset, parts_.monitor_services, tell);
  return parts_.monitors.Add(entry);
}

void Reconciler::NoteMissing(const Dataset& dataset) {
  CallLogged(parts_.log, {L"Reconciler::NoteMissing", dataset.row.name},
             [&] { parts_.monitors.NoteMissing(dataset.row.id); });
  parts_.notifier.TellShortage();
}

void Reconciler::NoteWithdrawals() {
  for (const Dataset& dataset : parts_.services.datasets.datasets()) {
    const DatasetRow& row = dataset.row;
    const bool owed = stopped_.contains(row.id) || unmarked_.contains(row.id);
    if (parts_.policy.Decide(row, DecisionMoment::kRunning).runs() && !owed) continue;
    // One that is still being stopped may replace the mark; its stopper asks for another reconciliation.
    if (parts_.monitors.Find(row.id) != nullptr) continue;
    const int result = MarkWithdrawn(std::wstring(row.id));
    if (result == 0) {
      stopped_.erase(row.id);
      unmarked_.erase(row.id);
    } else if (unmarked_.insert(row.id).second) {
      parts_.log.e(L"%s: the withdrawn consent to %s cannot be noted, error %d; it is tried again",
                   L"EventManager::NoteWithdrawals", row.name, result);
    }
  }
}

int Reconciler::MarkWithdrawn(const std::wstring& dataset_id) {
  EventDataLogging& store = parts_.services.store;
  std::wstring place;
  const int result = ReadKeptState(store, dataset_id, kBookmarkState, place);
  if (result == kStoreNotFound || (result == 0 && place == kWithdrawnPlace)) return 0;
  return result != 0 ? result : store.KeepState(dataset_id, {kBookmarkState, kWithdrawnPlace});
}

void Reconciler::AddNullAndNoneDatasets() {
  std::map<std::wstring_view, const Dataset*> always;
  for (const Dataset& dataset : parts_.services.datasets.datasets()) {
    if (dataset.row.rule == DatasetRule::kAlways) always[dataset.row.id] = &dataset;
  }
  for (const auto& [id, dataset] : always) {
    try {
      MonitorList::Entry entry;
      if (!AddMonitor(*dataset, entry)) continue;
      parts_.log.d(L"%s : %s add to event monitor list", L"EventManager::AddNullAndNoneDatasets", dataset->row.name);
    } catch (...) {
      parts_.log.e(L"%s Initialize dataset failed with exception", dataset->row.name);
      NoteMissing(*dataset);
    }
  }
}

void Reconciler::AddPolicyDatasets(const NormalisedPolicy& policy) {
  const EligibilityFilter device(parts_.services.machine_information.traits());
  if (!device.IsApplicable(policy.applicability)) {
    parts_.log.d(L"TelemetryPolicy not Applicable");
    return;
  }
  constexpr DecisionMoment kMoment = DecisionMoment::kServiceStart;
  for (const PolicyEntry* entry : OrderDatasets(policy)) {
    const std::wstring& name = entry->values.name;
    try {
      const DatasetDecision by_entry = DecideEntry(entry->values, policy, device, kMoment);
      if (by_entry.reason == DecisionReason::kDisabled) {
        parts_.log.d(L"EventManager Initialize dataset : %s is not enable", name);
      } else if (!by_entry.runs()) {
        parts_.log.d(L"EventManager Initialize dataset : %s is not applicable", name);
      } else if (entry->meaning == EntryMeaning::kCounts && entry->dataset->row.rule != DatasetRule::kAlways &&
                 HasListedMonitor(entry->dataset->row) && parts_.policy.Decide(entry->dataset->row, kMoment).runs()) {
        MonitorList::Entry monitor;
        if (entry->dataset->row.rule == DatasetRule::kUserProcess) {
          parts_.display.Start(L"EventManager::Initialize", false);
        } else if (AddMonitor(*entry->dataset, monitor)) {
          parts_.log.d(L"EventManager Initialize dataset : %s add to event monitor list", name);
        }
      }
    } catch (...) {
      parts_.log.e(L"%s Initialize dataset failed with exception", name);
      if (entry->dataset != nullptr) NoteMissing(*entry->dataset);
    }
  }
}

void Reconciler::RunAndAddToList(const std::wstring& dataset_id) {
  constexpr wchar_t kThis[] = L"EventManager::RunAndAddToList";
  const Dataset* const dataset = parts_.services.datasets.FindById(dataset_id);
  const auto run = [&] {
    if (parts_.policy.Read() == nullptr || dataset == nullptr) return false;
    if (!parts_.policy.Decide(dataset->row, DecisionMoment::kStart).runs()) return false;
    if (dataset->row.rule == DatasetRule::kUserProcess) {
      parts_.display.Start(kThis, parts_.device_context.IsDevicePathChange());
      return true;
    }
    if (!dataset->factory || !HasListedMonitor(dataset->row)) return false;
    // The monitors of the start have had their chance to see the first run; one that comes later decides by its own
    // last device-initialisation event.
    parts_.identity.Set(&IdentityValues::Values::first_invocation, false);
    MonitorList::Entry entry;
    if (!AddMonitor(*dataset, entry)) return false;
    if (!entry->Start(kThis)) {
      if (entry->ClaimStop()) {
        entry->JoinAndDelete();
        parts_.monitors.Remove(entry);
      }
      return false;
    }
    parts_.log.d(L"EventManager RunAndAddToList %s successfully!", dataset_id);
    return true;
  };
  bool runs = false;
  CallLogged(parts_.log, {kThis, dataset == nullptr ? std::wstring_view(dataset_id) : dataset->row.name},
             [&] { runs = run(); });
  if (runs) return;
  parts_.log.e(L"EventManager RunAndAddToList %s failed!", dataset_id);
  if (dataset != nullptr) NoteMissing(*dataset);
}

void Reconciler::StopAndRemoveFromList(const std::wstring& dataset_id) {
  const MonitorList::Entry entry = parts_.monitors.Find(dataset_id);
  if (entry == nullptr || !entry->ClaimStop()) {
    parts_.log.d(L"EventManager StopAndRemoveFromList %s failed!", dataset_id);
    return;
  }
  entry->StopMonitor();
  entry->JoinAndDelete();
  parts_.monitors.Remove(entry);
  parts_.log.d(L"EventManager StopAndRemoveFromList %s successfully!", dataset_id);
}

void Reconciler::StopDisabledDatasets() {
  constexpr wchar_t kThis[] = L"EventManager::StopDisabledDatasets";
  parts_.log.d(L"%s Enter: ", kThis);
  const auto stop_event = parts_.notifier.wake_ups().stop;
  for (const MonitorList::Entry& entry : parts_.monitors.Listed()) {
    if (parts_.policy.Decide(entry->row(), DecisionMoment::kRunning).runs()) continue;
    // The consent may be there again before it has stopped.
    CallLogged(parts_.log, kThis, [&] { stopped_.insert(entry->row().id); });
    StopOnStopper(entry, [this] {
      const auto scope_changed = parts_.notifier.wake_ups().telemetry_scope;
      if (scope_changed != nullptr) scope_changed->Release(1);
    });
  }
  stoppers_.Wait(stop_event.get());
  // A monitor that was still starting, or never could, has not noted it or has overwritten that.
  CallLogged(parts_.log, kThis, [&] { NoteWithdrawals(); });
  parts_.policy.WaitForExcludedWrites(kThis, stop_event.get());
  parts_.display.StopIfExcluded();
  parts_.log.d(L"%s Exit: ", kThis);
}

void Reconciler::StopOnStopper(const MonitorList::Entry& entry, const std::function<void()>& ended_late) {
  entry->MarkLeaving();
  stoppers_.Run(
      entry->row().name, [this, id = std::wstring(entry->row().id)] { stop_(id); }, ended_late);
}

void Reconciler::TryAgain() {
  constexpr wchar_t kThis[] = L"EventManager::TryAgain";
  const auto stop_event = parts_.notifier.wake_ups().stop;
  for (const MonitorList::Entry& entry : parts_.monitors.Listed()) {
    if (!parts_.initialized) return;
    if (!entry->IsStarted()) {
      if (!entry->Start(kThis)) parts_.notifier.TellShortage();
      continue;
    }
    const Shortage shortage = entry->TakeShortage();
    if (shortage == Shortage::kSettings) {
      entry->Call(kThis, [](EventMonitorBase& monitor) { monitor.ReadAndUpdateDatasetSettings(); });
    } else if (shortage == Shortage::kStart) {
      parts_.monitors.NoteMissing(entry->row().id);
      StopOnStopper(entry, [this] { parts_.notifier.TellShortage(); });
    }
  }
  stoppers_.Wait(stop_event.get());
  for (const Dataset& dataset : parts_.services.datasets.datasets()) {
    const DatasetRow& row = dataset.row;
    if (!parts_.initialized) return;
    if (parts_.monitors.IsMissing(row.id) && !IsThere(row) &&
        parts_.policy.Decide(row, DecisionMoment::kStart).runs()) {
      run_(std::wstring(row.id));
    }
  }
}

void Reconciler::StartMissingDatasets(const NormalisedPolicy& policy) {
  for (const PolicyEntry* entry : OrderDatasets(policy)) {
    if (!parts_.initialized) return;
    const Dataset* const dataset = entry->dataset;
    // One that is still being stopped comes back when its stopper asks for it.
    if (entry->meaning != EntryMeaning::kCounts || !HasListedMonitor(dataset->row) ||
        !parts_.policy.Decide(dataset->row, DecisionMoment::kStart).runs()) {
      continue;
    }
    if (!IsThere(dataset->row)) run_(std::wstring(dataset->row.id));
  }
}

bool Reconciler::IsThere(const DatasetRow& row) const {
  return row.rule == DatasetRule::kUserProcess ? parts_.display.Runs() : parts_.monitors.Find(row.id) != nullptr;
}

void Reconciler::RereadSettings() {
  for (const MonitorList::Entry& entry : parts_.monitors.Listed()) {
    if (!parts_.initialized) return;
    entry->Call(L"EventManager::RereadSettings",
                [](EventMonitorBase& monitor) { monitor.ReadAndUpdateDatasetSettings(); });
  }
}

void Reconciler::WaitForEventMonitorThreads() {
  constexpr wchar_t kThis[] = L"EventManager::WaitForEventMonitorThreads";
  for (const MonitorList::Entry& entry : parts_.monitors.Listed()) {
    const DatasetRow& row = entry->row();
    if (row.rule == DatasetRule::kAlways) {
      parts_.log.d(L"%s it is null data set! %s: ", kThis, row.name);
      continue;
    }
    try {
      if (entry->JoinIfReturned()) parts_.log.d(L"%s join the thread! %s: ", kThis, row.name);
    } catch (const std::system_error&) {
      parts_.log.e(L"%s: Error joining event monitor!", kThis);
    }
  }
}

}  // namespace TVK
