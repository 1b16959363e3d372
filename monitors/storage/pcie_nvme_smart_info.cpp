#include "monitors/storage/pcie_nvme_smart_info.h"

#include <cstddef>
#include <exception>
#include <string>
#include <utility>

#include "client/text/string.h"

namespace {

constexpr const wchar_t* kSensorKeys[] = {L"TemperatureSensor1", L"TemperatureSensor2", L"TemperatureSensor3",
                                          L"TemperatureSensor4", L"TemperatureSensor5", L"TemperatureSensor6",
                                          L"TemperatureSensor7", L"TemperatureSensor8"};

}  // namespace

int PCIeNVMeSmartInfo::Guard(const wchar_t* function, const std::function<int()>& work) const {
  try {
    const int code = work();
    if (code != 0) log_.e(L"%s: Failed retCode: %d", function, code);
    return code;
  } catch (const std::exception& failure) {
    log_.e(L"%s: Exception: %s", function, TVK::String::UTF8ToUTF16(failure.what()));
    return kErrorException;
  }
}

int PCIeNVMeSmartInfo::ReadSMARTInfo(const Reader& read) {
  health_.reset();
  return Guard(L"PCIeNVMeSmartInfo::ReadSMARTInfo", [&] {
    TVK::NvmeHealth health;
    const int code = read(health);
    if (code == 0) health_ = health;
    return code;
  });
}

int PCIeNVMeSmartInfo::GetSmartInfoList(ItemData& data) const {
  return Guard(L"PCIeNVMeSmartInfo::GetSmartInfoList", [&] {
    if (!health_) return kErrorNotRead;
    for (const auto& [key, number] :
         {std::pair<const wchar_t*, std::int64_t>(L"CriticalWarning", health_->critical_warning),
          {L"AvailableSpare", health_->available_spare},
          {L"AvailableSpareThreshold", health_->available_spare_threshold},
          {L"PercentageUsed", health_->percentage_used},
          {L"WarningCompositeTemperatureTime", health_->warning_temperature_minutes},
          {L"CriticalCompositeTemperatureTime", health_->critical_temperature_minutes}})
      data[key] = std::to_wstring(number);
    if (health_->temperature_c) data[L"TemperatureC"] = std::to_wstring(*health_->temperature_c);
    for (const auto& [key, counter] : {std::pair(L"DataUnitsRead", &health_->data_units_read),
                                       {L"DataUnitsWritten", &health_->data_units_written},
                                       {L"HostReadCommands", &health_->host_read_commands},
                                       {L"HostWrittenCommands", &health_->host_written_commands},
                                       {L"ControllerBusyTime", &health_->controller_busy_time},
                                       {L"PowerCycle", &health_->power_cycles},
                                       {L"PowerOnHours", &health_->power_on_hours},
                                       {L"UnsafeShutdowns", &health_->unsafe_shutdowns},
                                       {L"MediaErrors", &health_->media_errors},
                                       {L"ErrorInfoLogEntryCount", &health_->error_log_entries}})
      data[key] = counter->Decimal();
    for (std::size_t i = 0; i < health_->sensors_c.size(); ++i) {
      if (const auto& sensor = health_->sensors_c[i]) data[kSensorKeys[i]] = std::to_wstring(*sensor);
    }
    return 0;
  });
}
