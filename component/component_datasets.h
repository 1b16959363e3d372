// The datasets of this component with their monitors.
#pragma once

#include "core/dataset_table.h"

namespace TVK {

/// Every row of the table of datasets, with the factory of its monitor.
DatasetTable MakeComponentDatasets();

}  // namespace TVK
