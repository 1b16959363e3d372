// What the three datasets of drives' health do alike.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "monitors/storage/drive_monitor.h"

namespace TVK {

/// How they differ. Constant. A line takes its caller first, where it begins so.
struct SmartMonitorTraits {
  const wchar_t* stop_event;
  const wchar_t* bus_type;           ///< "DriveBusType" of the dataset contexts; null: they have none.
  MonitorLine item_without_context;  ///< For a drive that is not in the map of contexts.
  MonitorLine snapshot_without_context;
  /// Debug: how the wait for the contexts of the storage dataset ended.
  void (*log_start)(const Log& log, const std::wstring& caller, bool stopping, bool found_store_context);
};

/// See EventMonitorBase for who calls what. Initialize makes the stop event, without which StartMonitor does nothing.
/// StartMonitor returns when the reports run. The dataset contexts of the
/// storage dataset are waited for, for a minute at most: the drives are described there.
class SmartMonitor : public DriveMonitor {
 public:
  void Initialize() override;
  void StartMonitor(std::wstring name) override;

  /// The record of a day: "ReadSMARTPerDay" for every drive.
  void LogItemEvent();

 protected:
  static constexpr wchar_t kPerDay[] = L"ReadSMARTPerDay";
  static constexpr wchar_t kPerSession[] = L"ReadSMARTPerSession";
  static constexpr std::uint32_t kDayMs = 86'400'000;

  SmartMonitor(const MonitorServices& services, const MonitorIdentity& identity, const SmartMonitorTraits& traits,
               std::optional<ReportRule> report);

  /// Waits for a drive's health as records have it; nothing, when it does not tell. Once.
  using AskedHealth = std::function<std::optional<ItemData>()>;
  /// Asks the drive; what of it is needed later it keeps itself.
  virtual AskedHealth AskHealth(const StorageCollector::HardDisk& drive) = 0;
  /// What follows the dataset contexts at the start: the session's record, and the reports.
  virtual void Begin() = 0;

  /// Writes `item` for every drive that has a context and tells of its health. They are asked side by side.
  void LogHealth(const wchar_t* item, const std::wstring& caller, MonitorLine without_context);
  const SmartMonitorTraits& traits() const { return traits_; }

  void AddFacts(const StorageCollector::HardDisk& drive, ItemData& facts) override;
  void LogDescribed(const std::wstring& model, const std::wstring& hashed_serial_number) const override;
  bool TakesDeviceInit(const std::wstring& device_key) override;

 private:
  const SmartMonitorTraits& traits_;
};

}  // namespace TVK
