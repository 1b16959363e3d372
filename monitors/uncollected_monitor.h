// The monitor of every dataset that this client lists but does not collect yet.
#pragma once

#include "framework/event_monitor_base.h"

/// Starts and stops like every other monitor, says in its log that it collects nothing, and writes no record.
class UncollectedMonitor final : public EventMonitorBase {
 public:
  /// `class_name` names the log file, "NetworkEventMonitor".
  UncollectedMonitor(SERVICE_STATUS_HANDLE handle, bool device_path_changed, const MonitorServices& services,
                     std::wstring dataset_name, std::wstring class_name);

  void Initialize() override;
  void UnInitialize() override {}
  void StartMonitor(std::wstring name) override;
  void StopMonitor() override {}
  std::wstring GetName() const override { return dataset_name_; }

 private:
  const std::wstring dataset_name_;
  const std::wstring class_name_;
};
