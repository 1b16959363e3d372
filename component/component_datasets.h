// The datasets of this component with their monitors.
#pragma once

#include "core/dataset_table.h"
#include "monitors/system/cpu_info.h"

/// The table of all datasets, each with the factory of its monitor. `cpu_info` must outlive the table's monitors.
DatasetTable MakeComponentDatasets(CPUInfo& cpu_info);
