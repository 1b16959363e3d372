#include "platform/service_control_event.h"

#include <algorithm>
#include <array>

#include "platform/little_endian.h"

namespace platform {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr unsigned long kDeviceEvent = 11;    // SERVICE_CONTROL_DEVICEEVENT
constexpr unsigned long kPowerEvent = 13;     // SERVICE_CONTROL_POWEREVENT
constexpr unsigned long kSessionChange = 14;  // SERVICE_CONTROL_SESSIONCHANGE

constexpr unsigned long kSuspend = 0x0004;             // PBT_APMSUSPEND
constexpr unsigned long kResumeAutomatic = 0x0012;     // PBT_APMRESUMEAUTOMATIC
constexpr unsigned long kPowerSettingChange = 0x8013;  // PBT_POWERSETTINGCHANGE

constexpr unsigned long kConsoleConnect = 1;     // WTS_CONSOLE_CONNECT
constexpr unsigned long kConsoleDisconnect = 2;  // WTS_CONSOLE_DISCONNECT
constexpr unsigned long kRemoteConnect = 3;      // WTS_REMOTE_CONNECT
constexpr unsigned long kRemoteDisconnect = 4;   // WTS_REMOTE_DISCONNECT
constexpr unsigned long kSessionLogon = 5;       // WTS_SESSION_LOGON
constexpr unsigned long kSessionLogoff = 6;      // WTS_SESSION_LOGOFF

constexpr unsigned long kDeviceArrival = 0x8000;         // DBT_DEVICEARRIVAL
constexpr unsigned long kDeviceRemoveComplete = 0x8004;  // DBT_DEVICEREMOVECOMPLETE

// POWERBROADCAST_SETTING: a GUID, the length of the data, the data.
constexpr std::size_t kGuidSize = 16;
constexpr std::size_t kSettingHeaderSize = kGuidSize + 4;
// WTSSESSION_NOTIFICATION: its own size, the session.
constexpr std::size_t kSessionSize = 8;
// DEV_BROADCAST_HDR: its own size, what kind of device, a reserved word. DEV_BROADCAST_DEVICEINTERFACE: the interface's
// class behind it, then its name.
constexpr std::size_t kDeviceHeaderSize = 12;
constexpr std::size_t kInterfaceSize = kDeviceHeaderSize + kGuidSize;

// GUID_ACDC_POWER_SOURCE, GUID_BATTERY_PERCENTAGE_REMAINING, GUID_DEVINTERFACE_DISK, as they lie in memory.
constexpr std::array<std::uint8_t, kGuidSize> kAcDcPowerSource = {0x59, 0x9A, 0x3E, 0x5D, 0xD5, 0xE9, 0x00, 0x4B,
                                                                  0xA6, 0xBD, 0xFF, 0x34, 0xFF, 0x51, 0x65, 0x48};
constexpr std::array<std::uint8_t, kGuidSize> kBatteryPercentageRemaining = {
    0x41, 0x80, 0xAD, 0xA7, 0x5A, 0xB4, 0xAE, 0x4C, 0x87, 0xA3, 0xEE, 0xCB, 0xB4, 0x68, 0xA9, 0xE1};
constexpr std::array<std::uint8_t, kGuidSize> kDiskInterface = {0x07, 0x63, 0xF5, 0x53, 0xBF, 0xB6, 0xD0, 0x11,
                                                                0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B};

std::optional<SystemEvent> DecodePowerSetting(Bytes setting) {
  if (setting.size() < kSettingHeaderSize) return std::nullopt;
  const std::uint32_t length = LittleEndianAt<std::uint32_t>(setting, kGuidSize);
  // Both values are a DWORD of which the first byte says it all.
  if (length == 0 || length > setting.size() - kSettingHeaderSize) return std::nullopt;
  const Bytes guid = setting.first(kGuidSize);
  const std::uint32_t value = setting[kSettingHeaderSize];
  if (std::ranges::equal(guid, kAcDcPowerSource)) {
    constexpr PowerSource kSources[] = {PowerSource::kAc, PowerSource::kBattery, PowerSource::kShortTerm};
    if (value < std::size(kSources)) return kSources[value];
  } else if (std::ranges::equal(guid, kBatteryPercentageRemaining)) {
    if (value <= 100) return BatteryPercent{value};
  }
  return std::nullopt;
}

std::optional<SystemEvent> DecodeDevice(unsigned long event_type, Bytes device) {
  constexpr std::uint32_t kDeviceInterface = 5;  // DBT_DEVTYP_DEVICEINTERFACE
  if (device.size() < kInterfaceSize) return std::nullopt;
  const std::uint32_t size = LittleEndianAt<std::uint32_t>(device, 0);
  if (size < kInterfaceSize || size > device.size()) return std::nullopt;
  const bool disk = LittleEndianAt<std::uint32_t>(device, 4) == kDeviceInterface &&
                    std::ranges::equal(device.subspan(kDeviceHeaderSize, kGuidSize), kDiskInterface);
  if (!disk) return std::nullopt;
  if (event_type == kDeviceArrival) return DriveChange::kAttached;
  if (event_type == kDeviceRemoveComplete) return DriveChange::kDetached;
  return std::nullopt;
}

std::optional<SystemEvent> DecodeSession(unsigned long event_type, Bytes notification) {
  if (notification.size() < kSessionSize || LittleEndianAt<std::uint32_t>(notification, 0) < kSessionSize)
    return std::nullopt;
  if (const auto change = DecodeSessionChange(event_type, LittleEndianAt<std::uint32_t>(notification, 4)))
    return *change;
  return std::nullopt;
}

}  // namespace

Bytes ServiceControlData(unsigned long control, unsigned long event_type, const void* event_data) {
  if (event_data == nullptr) return {};
  const auto* const bytes = static_cast<const std::uint8_t*>(event_data);
  if (control == kSessionChange) return {bytes, kSessionSize};
  if (control == kDeviceEvent) return {bytes, LittleEndianAt<std::uint32_t>({bytes, 4}, 0)};
  if (control != kPowerEvent || event_type != kPowerSettingChange) return {};
  return {bytes, kSettingHeaderSize + LittleEndianAt<std::uint32_t>({bytes, kSettingHeaderSize}, kGuidSize)};
}

std::optional<SessionChange> DecodeSessionChange(unsigned long event_type, unsigned long session) {
  const auto number = static_cast<std::uint32_t>(session);
  switch (event_type) {
    case kConsoleConnect:
      return SessionChange{SessionChangeKind::kConsoleConnect, number};
    case kRemoteConnect:
      return SessionChange{SessionChangeKind::kRemoteConnect, number};
    case kConsoleDisconnect:
      return SessionChange{SessionChangeKind::kConsoleDisconnect, number};
    case kRemoteDisconnect:
      return SessionChange{SessionChangeKind::kRemoteDisconnect, number};
    case kSessionLogon:
      return SessionChange{SessionChangeKind::kLogon, number};
    case kSessionLogoff:
      return SessionChange{SessionChangeKind::kLogoff, number};
    default:
      return std::nullopt;
  }
}

std::optional<SystemEvent> DecodeServiceControl(unsigned long control, unsigned long event_type, Bytes event_data) {
  if (control == kSessionChange) return DecodeSession(event_type, event_data);
  if (control == kDeviceEvent) return DecodeDevice(event_type, event_data);
  if (control != kPowerEvent) return std::nullopt;
  switch (event_type) {
    case kSuspend:
      return SleepChange::kSuspend;
    case kResumeAutomatic:
      return SleepChange::kResume;
    case kPowerSettingChange:
      return DecodePowerSetting(event_data);
    default:
      return std::nullopt;
  }
}

std::optional<SystemEvent> DecodeServiceControl(unsigned long control, unsigned long event_type,
                                                const void* event_data) {
  return DecodeServiceControl(control, event_type, ServiceControlData(control, event_type, event_data));
}

}  // namespace platform
