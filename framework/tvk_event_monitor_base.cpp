#include "framework/tvk_event_monitor_base.h"

void TVKEventMonitorBase::StartMonitor(std::wstring /*name*/) {
  TVK::utility::InitLog(log_, L"TVKEventMonitor.log", 4);
  log_.i(L"TVKEventMonitor: no application events are accepted in this version");
}
