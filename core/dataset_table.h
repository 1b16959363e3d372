// The rows of the datasets joined to what makes them work in this program.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "framework/dataset_row.h"
#include "framework/dataset_settings.h"
#include "framework/event_monitor_base.h"

namespace TVK {

/// Makes a dataset's monitor; never null. The services outlive it.
using MonitorFactory = std::function<std::unique_ptr<EventMonitorBase>(const MonitorServices& services)>;

/// What becomes of a dataset's settings, for a person who asks; empty for a dataset that has none.
using SettingsReader = std::function<std::vector<SettingReading>(const SettingTexts& settings)>;

struct Dataset {
  const DatasetRow& row;
  MonitorFactory factory = {};  ///< Empty for kDeviceContext; of kUserProcess it gives a SessionDataset.
  SettingsReader read_settings = {};
  bool collects = false;  ///< False: its monitor, if it has one, collects nothing.
};

/// The datasets of a program. Constant after construction; any thread.
class DatasetTable {
 public:
  explicit DatasetTable(std::vector<Dataset> datasets) : datasets_(std::move(datasets)) {}

  const std::vector<Dataset>& datasets() const { return datasets_; }

  /// The dataset with exactly this name, or null.
  const Dataset* FindByName(std::wstring_view name) const;

  /// The dataset with exactly this id, or null.
  const Dataset* FindById(std::wstring_view id) const;

  /// The dataset of this rule, or null; for the rules that one row has.
  const Dataset* FindByRule(DatasetRule rule) const;

 private:
  const std::vector<Dataset> datasets_;
};

}  // namespace TVK
