#include "client/battery/battery_info.h"

#include <system_error>

#include "client/log/log.h"
#include "client/log/service_logs.h"
#include "client/text/hash_utility.h"

std::wstring BatteryInfo::GetHashedString(std::wstring value) {
  if (value.empty() || value == kUnknown) return value;
  try {
    return TVK::HashUtility::HashSerialNumber(value);
  } catch (const std::system_error& refusal) {
    TVK::Log log;
    TVK::utility::InitLog(log, TVK::ServiceLog(L"BatteryInfo.log"), 4);
    log.e(L"BatteryInfo::GetHashedString return error: %d", refusal.code().value());
    return {};
  }
}

BatteryInfo::Texts BatteryInfo::AllUnknown() {
  Texts texts;
  texts.fill(kUnknown);
  return texts;
}

bool BatteryInfo::IsPerhaps(const BatteryInfo& other) const {
  const std::wstring& one = batterySerialNumber();
  const std::wstring& another = other.batterySerialNumber();
  return one == another || one == kUnknown || another == kUnknown;
}

void BatteryInfo::Complete(const BatteryInfo& other) {
  for (std::size_t i = kDeviceName; i < kProperties; ++i) {
    if (texts_[i] == kUnknown) texts_[i] = other.texts_[i];
  }
}
