// What is known of one battery.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "client/battery/em_battery_info.h"
#include "client/battery/pwm_file_info.h"

/// A value: one text a property, as it is logged. One that no source supplied is "UnKnown" (kUnknown), which records
/// leave out.
class BatteryInfo {
 public:
  inline static const std::wstring kUnknown = L"UnKnown";

  /// The form in which serial numbers are logged; "UnKnown" and the empty text stay what they are. Empty, with a line,
  /// when the system refuses to hash.
  static std::wstring GetHashedString(std::wstring value);

  /// Identifies the battery within the machine, over restarts, as its place: "BAT0".
  const std::wstring& batteryId() const { return Get(kId); }
  const std::wstring& batteryDeviceName() const { return Get(kDeviceName); }
  /// Under which the system reaches it.
  const std::wstring& batteryDevicePath() const { return Get(kDevicePath); }
  const std::wstring& batteryManufactureName() const { return Get(kManufactureName); }
  const std::wstring& batteryManufactureDate() const { return Get(kManufactureDate); }  ///< "2024-05-31".
  const std::wstring& batteryFirstUseDate() const { return Get(kFirstUseDate); }        ///< "2024-05-31".
  /// In clear; never logged so.
  const std::wstring& batterySerialNumber() const { return Get(kSerialNumber); }
  const std::wstring& batteryChemistry() const { return Get(kChemistry); }
  const std::wstring& batteryHwid() const { return Get(kHwid); }
  const std::wstring& batteryFwVersion() const { return Get(kFwVersion); }
  const std::wstring& batteryDesignChargeCapacity() const { return Get(kDesignChargeCapacity); }      ///< mWh.
  const std::wstring& batteryFullChargeCapacity() const { return Get(kFullChargeCapacity); }          ///< mWh.
  const std::wstring& batteryRemainingCapacity() const { return Get(kRemainingCapacity); }            ///< mWh.
  const std::wstring& batteryBatteryChargeRemaining() const { return Get(kBatteryChargeRemaining); }  ///< Percent.
  /// "1" while it charges, "0" while it is discharged.
  const std::wstring& batteryChargeStatus() const { return Get(kChargeStatus); }
  const std::wstring& batteryAcDcMode() const { return Get(kAcDcMode); }  ///< "AC" or "DC".
  /// Seconds until it is empty or, while it charges, full.
  const std::wstring& batteryRemainingTime() const { return Get(kRemainingTime); }
  const std::wstring& batteryCycleCount() const { return Get(kCycleCount); }
  const std::wstring& batteryTotalChargedCapacity() const { return Get(kTotalChargedCapacity); }  ///< Wh.
  const std::wstring& batteryTotalBatteryAwakeHrs() const { return Get(kTotalBatteryAwakeHrs); }
  const std::wstring& batteryHoursAtFullCharge() const { return Get(kHoursAtFullCharge); }
  const std::wstring& batteryHoursAtHighTemp() const { return Get(kHoursAtHighTemp); }
  const std::wstring& batteryHoursAtFullChargeAndHighTemp() const { return Get(kHoursAtFullChargeAndHighTemp); }
  /// "Normal", "High Temperature" and so on.
  const std::wstring& batteryCondition() const { return Get(kCondition); }
  const std::wstring& batteryWarranty() const { return Get(kWarranty); }
  const std::wstring& batteryValidWarranty() const { return Get(kValidWarranty); }  ///< "true" or "false".
  /// Name of the item event that is being logged.
  const std::wstring& batteryEvent() const { return Get(kEvent); }

  void set_batteryId(std::wstring value) { Set(kId, std::move(value)); }
  void set_batteryDeviceName(std::wstring value) { Set(kDeviceName, std::move(value)); }
  void set_batteryDevicePath(std::wstring value) { Set(kDevicePath, std::move(value)); }
  void set_batteryManufactureName(std::wstring value) { Set(kManufactureName, std::move(value)); }
  void set_batteryManufactureDate(std::wstring value) { Set(kManufactureDate, std::move(value)); }
  void set_batteryFirstUseDate(std::wstring value) { Set(kFirstUseDate, std::move(value)); }
  void set_batterySerialNumber(std::wstring value) { Set(kSerialNumber, std::move(value)); }
  void set_batteryChemistry(std::wstring value) { Set(kChemistry, std::move(value)); }
  void set_batteryHwid(std::wstring value) { Set(kHwid, std::move(value)); }
  void set_batteryFwVersion(std::wstring value) { Set(kFwVersion, std::move(value)); }
  void set_batteryDesignChargeCapacity(std::wstring value) { Set(kDesignChargeCapacity, std::move(value)); }
  void set_batteryFullChargeCapacity(std::wstring value) { Set(kFullChargeCapacity, std::move(value)); }
  void set_batteryRemainingCapacity(std::wstring value) { Set(kRemainingCapacity, std::move(value)); }
  void set_batteryBatteryChargeRemaining(std::wstring value) { Set(kBatteryChargeRemaining, std::move(value)); }
  void set_batteryChargeStatus(std::wstring value) { Set(kChargeStatus, std::move(value)); }
  void set_batteryAcDcMode(std::wstring value) { Set(kAcDcMode, std::move(value)); }
  void set_batteryRemainingTime(std::wstring value) { Set(kRemainingTime, std::move(value)); }
  void set_batteryCycleCount(std::wstring value) { Set(kCycleCount, std::move(value)); }
  void set_batteryTotalChargedCapacity(std::wstring value) { Set(kTotalChargedCapacity, std::move(value)); }
  void set_batteryTotalBatteryAwakeHrs(std::wstring value) { Set(kTotalBatteryAwakeHrs, std::move(value)); }
  void set_batteryHoursAtFullCharge(std::wstring value) { Set(kHoursAtFullCharge, std::move(value)); }
  void set_batteryHoursAtHighTemp(std::wstring value) { Set(kHoursAtHighTemp, std::move(value)); }
  void set_batteryHoursAtFullChargeAndHighTemp(std::wstring value) {
    Set(kHoursAtFullChargeAndHighTemp, std::move(value));
  }
  void set_batteryCondition(std::wstring value) { Set(kCondition, std::move(value)); }
  void set_batteryWarranty(std::wstring value) { Set(kWarranty, std::move(value)); }
  void set_batteryValidWarranty(std::wstring value) { Set(kValidWarranty, std::move(value)); }
  void set_batteryEvent(std::wstring value) { Set(kEvent, std::move(value)); }

  /// Of its slot; see platform::BatteryFacts.
  std::optional<std::uint32_t> number() const { return number_; }
  void set_number(std::optional<std::uint32_t> number) { number_ = number; }

  /// What the energy-management driver and the power manager's log files told, for the properties that were filled from
  /// them.
  const _EM_BATTERY_INFO& EmBatteryInfo() const { return em_battery_info_; }
  void set_EmBatteryInfo(const _EM_BATTERY_INFO& value) { em_battery_info_ = value; }
  const PwmFileInfo& pwmFileInfo() const { return pwm_file_info_; }
  void set_pwmFileInfo(PwmFileInfo value) { pwm_file_info_ = std::move(value); }

  /// False when both tell a serial number, and not the same: `other` is of another battery.
  bool IsPerhaps(const BatteryInfo& other) const;
  /// Takes over from `other` every property that is "UnKnown" here, the place (id, device path, number) apart. The two
  /// blocks stay.
  void Complete(const BatteryInfo& other);

 private:
  enum Property : std::size_t {
    kId,
    kDevicePath,
    kDeviceName,
    kManufactureName,
    kManufactureDate,
    kFirstUseDate,
    kSerialNumber,
    kChemistry,
    kHwid,
    kFwVersion,
    kDesignChargeCapacity,
    kFullChargeCapacity,
    kRemainingCapacity,
    kBatteryChargeRemaining,
    kChargeStatus,
    kAcDcMode,
    kRemainingTime,
    kCycleCount,
    kTotalChargedCapacity,
    kTotalBatteryAwakeHrs,
    kHoursAtFullCharge,
    kHoursAtHighTemp,
    kHoursAtFullChargeAndHighTemp,
    kCondition,
    kWarranty,
    kValidWarranty,
    kEvent,
    kProperties
  };

  using Texts = std::array<std::wstring, kProperties>;
  static Texts AllUnknown();

  const std::wstring& Get(Property property) const { return texts_[property]; }
  void Set(Property property, std::wstring value) { texts_[property] = std::move(value); }

  Texts texts_ = AllUnknown();
  std::optional<std::uint32_t> number_;
  _EM_BATTERY_INFO em_battery_info_;
  PwmFileInfo pwm_file_info_;
};
