#include "core/dataset_status.h"

namespace TVK {
namespace {

void ReadMonitor(const ManagerParts& parts, DatasetStatus& status) {
  const MonitorList::Entry entry = parts.monitors.Find(status.dataset->row.id);
  if (entry == nullptr) {
    if (parts.monitors.IsMissing(status.dataset->row.id)) status.obstacle = "not started";
  } else {
    status.runs = entry->IsListed() && entry->IsStarted() && !entry->LacksAtStart() && !entry->HasFailed();
    if (entry->LacksAtStart()) status.obstacle = "not started";
    if (entry->HasFailed()) status.obstacle = "failed";
    status.since = entry->started_at();
  }
  // What a filter excludes does not start, and what runs goes on.
  status.decision =
      parts.policy.Decide(status.dataset->row, status.runs ? DecisionMoment::kRunning : DecisionMoment::kStart);
}

// Of what runs: the filter that will keep it from starting again; empty: none.
std::wstring ExplainNextStart(const DatasetRow& row, const PolicyView& policy) {
  const DatasetDecision start = policy.Decide(row, DecisionMoment::kStart);
  return start.runs() ? std::wstring()
                      : L"until the service starts anew: " + Explain(start, row, policy.DecidingScope());
}

DatasetStatus StatusOf(const Dataset& dataset, const ManagerParts& parts, const SessionDatasets& sessions) {
  DatasetStatus status{.dataset = &dataset};
  switch (dataset.row.rule) {
    case DatasetRule::kApplication:
      status.decision = parts.policy.Decide(dataset.row, DecisionMoment::kStart);
      status.runs = parts.initialized && status.decision.runs();
      break;
    case DatasetRule::kDeviceContext:
      status.runs = parts.initialized;
      break;
    case DatasetRule::kUserProcess:
      // What its filters exclude is not written, whether or not it started.
      status.decision = parts.policy.Decide(dataset.row, DecisionMoment::kStart);
      status.runs = parts.display.Runs() && status.decision.runs();
      if (!status.runs) status.obstacle = "no user agent";
      if (status.runs) status.since = sessions.Since(dataset.row.id);
      break;
    default:
      ReadMonitor(parts, status);
  }
  status.detail = Explain(status.decision, dataset.row, parts.policy.DecidingScope());
  if (status.runs && status.decision.runs()) status.detail = ExplainNextStart(dataset.row, parts.policy);
  if (status.decision.reason != DecisionReason::kNotListed) return status;
  const PolicyView::Policy policy = parts.policy.in_force();
  if (const PolicyEntry* const entry = policy->FindMismatch(dataset.row.id)) {
    status.meaning = entry->meaning;
    status.detail = ExplainMismatch(*entry);
  }
  return status;
}

}  // namespace

std::vector<DatasetStatus> StatusOfDatasets(const ManagerParts& parts, const SessionDatasets& sessions) {
  std::vector<DatasetStatus> all;
  for (const Dataset& dataset : parts.services.datasets.datasets())
    all.push_back(StatusOf(dataset, parts, sessions));
  return all;
}

void AskNextReports(const MonitorList& monitors, std::vector<DatasetStatus>& datasets) {
  for (DatasetStatus& status : datasets) {
    const MonitorList::Entry entry = monitors.Find(status.dataset->row.id);
    if (entry == nullptr) continue;
    entry->Call(L"EventManager::Status", [&](EventMonitorBase& monitor) { status.next_due = monitor.NextReport(); });
  }
}

}  // namespace TVK
