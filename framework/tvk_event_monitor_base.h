// The base of the monitor through which other components of the client write their own item events.
#pragma once

#include "framework/event_monitor_base.h"

/// Driven by its callers instead of by a schedule: there is nothing to initialise and nothing to end.
class TVKEventMonitorBase : public EventMonitorBase {
 public:
  using EventMonitorBase::EventMonitorBase;

  void Initialize() override {}
  void StopMonitor() override {}
  void StartMonitor(std::wstring name) override;
  std::wstring GetName() const override { return L"TVKEvent"; }
};
