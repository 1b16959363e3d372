// The storage dataset: the drives and volumes of the machine, how full the volumes are, and what their file systems
// count as errors.
#pragma once

#include <cstddef>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "framework/scheduled_monitor.h"
#include "monitors/storage/disk_information.h"
#include "monitors/storage/drive_arrivals.h"

/// See EventMonitorBase for who calls what. One dataset context for each drive and each volume; they are looked at anew
/// somewhat after a drive came or went, the volumes with each report, too.
///
/// Under the scope "none" nothing is written that tells of use: no report of how full the volumes are, and nothing of
/// what people plug in.
///
/// StartMonitor looks at the volumes and returns; the reports follow on a thread of their own.
class StoreEventMonitor final : public TVK::ScheduledMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"StorageEvent");
  static constexpr TVK::DatasetRow kUseRow = TVK::WithScopes(kRow, L"basic,enhance,full");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  inline static const std::wstring regexForReadUsageInterval = L"^\\d+(m|h|d)$";
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;  ///< Item name to item id.

  /// Space is low when less than this is free in percent and in bytes ...
  static constexpr std::uint64_t kLowPercent = 10;
  static constexpr std::uint64_t kLowBytes = 10ull << 30;
  /// ... and enough again when this is free in percent or in bytes.
  static constexpr std::uint64_t kEnoughPercent = 15;
  static constexpr std::uint64_t kEnoughBytes = 15ull << 30;

  explicit StoreEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;
  void StopMonitor() override;
  void RestartMonitor() override { LogDatasetContext(true); }
  void OnSystemEvent(const platform::SystemEvent& event) override;
  void ReadAndUpdateDatasetSettings() override;

  /// The report of one interval; on the timer's thread.
  void ReadVolumePerInterval() { LookAtVolumes(true); }

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;

 private:
  /// Describes the volumes anew where they changed, writes what is to be written of each, and `with_report` how full it
  /// is; then drives that had not told who they are are asked again, too.
  void LookAtVolumes(bool with_report);
  /// Whether the contexts were described of others than `volumes`, or for another consent.
  bool IsDescribed(const std::vector<DiskVolume>& volumes);
  void CheckSpace(const DiskVolume& volume);
  void CheckErrors(const DiskVolume& volume);
  /// What the last item of this name said of the volume; empty when there is none, nothing when the store fails.
  std::optional<std::wstring> Known(const wchar_t* item, const DiskVolume& volume) const;
  /// Writes the item, and keeps `known` with it.
  void WriteChange(const wchar_t* item, ItemData data, const DiskVolume& volume, const std::wstring& known);

  DiskInformation info_;
  TVK::DriveArrivals arrivals_;
  std::mutex mutex_;                             ///< Guards what follows.
  std::vector<TVK::DescribedDevice> described_;  ///< The volumes, as they were described last.
  std::optional<bool> described_use_;            ///< Whether what tells of use was admitted then.
};
