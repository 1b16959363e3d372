// The datasets of this component with their monitors.
#pragma once

#include "core/dataset_table.h"

/// Every row of the table of datasets, with the factory of its monitor.
DatasetTable MakeComponentDatasets();
