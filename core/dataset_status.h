// How the datasets stand: decided, and really there.
#pragma once

#include <vector>

#include "core/manager_access.h"
#include "core/reconciler.h"
#include "core/session_datasets.h"

namespace TVK {

/// All datasets of the table, in its order; without `next_due`. No monitor is called. Any thread.
std::vector<DatasetStatus> StatusOfDatasets(const ManagerParts& parts, const SessionDatasets& sessions);

/// Fills `next_due`. Calls the monitors, which may be busy: not for a thread that something waits for.
void AskNextReports(const MonitorList& monitors, std::vector<DatasetStatus>& datasets);

}  // namespace TVK
