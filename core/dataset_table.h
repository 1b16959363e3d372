// What datasets there are: one row each, with the rule by which it runs and the factory of its monitor.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/dataset_settings.h"
#include "framework/event_monitor_base.h"

/// Makes a dataset's monitor; never null.
using MonitorFactory = std::function<std::unique_ptr<EventMonitorBase>(
    SERVICE_STATUS_HANDLE handle, bool device_path_changed, const MonitorServices& services)>;

/// What becomes of a dataset's settings, for a person who asks; empty for a dataset that has none.
using SettingsReader = std::function<std::vector<SettingReading>(const SettingTexts& settings)>;

enum class DatasetRule {
  kByScope,        ///< Runs when the policy lists it and its scopes hold the scope in force.
  kAnyScope,       ///< Runs when the policy lists it.
  kAlways,         ///< Runs whatever policy and scope say.
  kUserProcess,    ///< By scope, in the user agent's process instead of a monitor here.
  kApplication,    ///< Written by other components through the application-event monitor.
  kDeviceContext,  ///< The device context record, watched for by the manager itself.
};

struct DatasetRow {
  int rank = 0;     ///< Start order, ascending.
  std::wstring id;  ///< Upper-case GUID text.
  std::wstring name;
  std::wstring scopes;  ///< Comma-separated scopes in which it may run. Empty: the scope does not matter to it.
  DatasetRule rule = DatasetRule::kByScope;
  MonitorFactory factory;  ///< Empty for kUserProcess and kDeviceContext.
  SettingsReader read_settings = {};
  bool collects = false;  ///< False: its monitor, if it has one, collects nothing.
};

/// The rows. Constant after construction; any thread.
class DatasetTable {
 public:
  explicit DatasetTable(std::vector<DatasetRow> rows) : rows_(std::move(rows)) {}

  const std::vector<DatasetRow>& rows() const { return rows_; }

  /// The row with exactly this name, or null.
  const DatasetRow* FindByName(const std::wstring& name) const;

  /// The row that a policy's entry means, or null: the row's id occurs in the entry's upper-cased id, and the names are
  /// equal. Only datasets that a policy can switch (kByScope, kAnyScope, kUserProcess) are found.
  const DatasetRow* FindForPolicy(const std::wstring& id, const std::wstring& name) const;

  /// The row of this rule, or null; for the rules that one row has.
  const DatasetRow* FindByRule(DatasetRule rule) const;

 private:
  const std::vector<DatasetRow> rows_;
};

/// The 25 datasets of the component without factories, in the order of their ranks.
std::vector<DatasetRow> ComponentDatasets();
