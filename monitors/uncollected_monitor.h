// The monitor of every dataset that this client lists but does not collect yet.
#pragma once

#include "framework/event_monitor_base.h"

namespace TVK {

/// Starts and stops like every other monitor, says in its log that it collects nothing, and writes no record.
class UncollectedMonitor final : public EventMonitorBase {
 public:
  UncollectedMonitor(const MonitorServices& services, const DatasetRow& row);

  void Initialize() override;
  void UnInitialize() override {}
  void StartMonitor(std::wstring name) override;
  void StopMonitor() override {}
  std::wstring GetName() const override { return std::wstring(row_.name); }

 private:
  const DatasetRow& row_;
};

}  // namespace TVK
