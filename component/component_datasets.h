// The datasets of this component with their monitors.
#pragma once

#include "core/dataset_table.h"

namespace TVK {

/// Every dataset of this component, those that stand in no other table too, with the factory of its monitor.
DatasetTable MakeComponentDatasets();

/// The same, made once, for who asks what datasets there are. Any thread.
const DatasetTable& ComponentDatasets();

}  // namespace TVK
