// The dataset of the health of every drive that speaks ATA, and of the attributes that foretell its failure.
#pragma once

#include "monitors/storage/smart_info.h"
#include "monitors/storage/smart_monitor.h"

/// See SmartMonitor. The record of a day is due when a day has passed by the wall clock since the last one, which the
/// shared tick looks at: nothing wakes for it in between. At the start and with each record of a day the drives'
/// attributes are held against their thresholds.
class SmartEventMonitor final : public TVK::SmartMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"SMARTEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit SmartEventMonitor(const TVK::MonitorServices& services);

  /// Reports the finding of a drive as "ThresholdExceedsCondition", unless it is the one that was reported of it last,
  /// which the store keeps until the drive is well again. As WriteItem; 0 also when it is the same.
  int CheckThresholdEntry(const std::wstring& key, const StorageCollector::HardDiskSmartInfo& found);

 protected:
  bool Qualifies(const StorageCollector::HardDisk& drive) const override;
  AskedHealth AskHealth(const StorageCollector::HardDisk& drive) override;
  void Begin() override;

 private:
  /// What a drive told.
  struct Told {
    std::wstring key;
    std::wstring model;
    TVK::AtaSmart smart;
  };

  /// Asks every drive.
  void CheckThresholds();
  void CheckThresholds(const Told& told);
  /// The drive is well: a finding that comes back is reported again.
  void ForgetThresholdEntry(const std::wstring& key);
  TVK::SecondTick::Work LookAtDay();

  const SmartInfo info_{log_};
  std::vector<Told> told_;     ///< For the record of a day, to be held against the thresholds; as last_day_.
  std::int64_t last_day_ = 0;  ///< Of the last record of a day; the watcher's look and its work, which take turns.
};
