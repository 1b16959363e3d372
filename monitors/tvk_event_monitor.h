// The application-event monitor.
#pragma once

#include "framework/tvk_event_monitor_base.h"

/// Accepts no application events in this version, and says so in its log when it is started.
class TVKEventMonitor final : public TVKEventMonitorBase {
 public:
  explicit TVKEventMonitor(const TVK::MonitorServices& services)
      : TVKEventMonitorBase(services.manager.get_svrHandle(), false, services) {}
  void UnInitialize() override {}
};
