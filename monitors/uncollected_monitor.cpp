#include "monitors/uncollected_monitor.h"

namespace TVK {

UncollectedMonitor::UncollectedMonitor(const MonitorServices& monitor_services, const DatasetRow& row)
    : EventMonitorBase(monitor_services.manager.get_svrHandle(), false, monitor_services), row_(row) {}

void UncollectedMonitor::Initialize() {
  utility::InitLog(log_, std::wstring(row_.log) + L".log", 4);
}

void UncollectedMonitor::StartMonitor(std::wstring /*name*/) {
  log_.i(L"%s: the dataset %s is listed, but nothing is collected for it in this version", row_.log, row_.name);
}

}  // namespace TVK
