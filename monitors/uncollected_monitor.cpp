#include "monitors/uncollected_monitor.h"

UncollectedMonitor::UncollectedMonitor(SERVICE_STATUS_HANDLE handle, bool device_path_changed,
                                       const MonitorServices& monitor_services, std::wstring dataset_name,
                                       std::wstring class_name)
    : EventMonitorBase(handle, device_path_changed, monitor_services),
      dataset_name_(std::move(dataset_name)),
      class_name_(std::move(class_name)) {}

void UncollectedMonitor::Initialize() {
  TVK::utility::InitLog(log_, class_name_ + L".log", 4);
}

void UncollectedMonitor::StartMonitor(std::wstring /*name*/) {
  log_.i(L"%s: the dataset %s is listed, but nothing is collected for it in this version", class_name_, dataset_name_);
}
