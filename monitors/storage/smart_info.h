// What records tell of the attributes of an ATA drive, and which of them foretell its failure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/log/log.h"
#include "client/storage/ata_smart.h"
#include "client/storage/hard_disk_smart_info.h"
#include "monitors/storage/smart_names.h"
#include "tvk/records.h"

/// Every ATA drive, by the generic names. Any thread, as long as the log lives.
class SmartInfo {
 public:
  /// `log` must outlive the object.
  explicit SmartInfo(const TVK::Log& log);
  SmartInfo(const SmartInfo&) = delete;
  SmartInfo& operator=(const SmartInfo&) = delete;
  virtual ~SmartInfo() = default;

  /// Adds an entry for each attribute that has a name to `data`: the name, and the text
  /// { "raw": "1","normalized": "2","threshold": "","worst": "3"} of its four numbers, the thresholds left empty. Of
  /// two attributes with one name the later one in the sector stands. False, with a line in the log, and `data` as it
  /// was, when none of them has a name.
  virtual bool FillSmartAttribValues(const TVK::AtaSmart& smart, ItemData& data) const;

  /// The same with the thresholds; one that the drive does not tell is left empty.
  virtual bool FillSmartAttribValues2(const TVK::AtaSmart& smart, ItemData& data) const;

  /// What records tell of the drive: FillSmartAttribValues2 where it told thresholds, else FillSmartAttribValues;
  /// nothing when that is false.
  std::optional<ItemData> ToItemData(const TVK::AtaSmart& smart) const;

  /// Whether the drive told any threshold.
  static bool TellsThresholds(const TVK::AtaSmart& smart);

  /// What records tell of one attribute; `with_threshold` false: as if the drive told none.
  static std::wstring ValueText(const TVK::AtaAttribute& attribute, bool with_threshold);

  /// The first attribute in the sector that has a name, a value above 0 and a known threshold, and is not above that;
  /// it goes into the log. Nothing when all is well.
  std::optional<StorageCollector::HardDiskSmartInfo> FoundPredictFailure(const TVK::AtaSmart& smart) const;

  /// All such attributes, in the order of the sector.
  std::vector<StorageCollector::HardDiskSmartInfo> PredictedFailures(const TVK::AtaSmart& smart) const;

 protected:
  /// `class_name` begins the lines in the log. Both must outlive the object.
  SmartInfo(const TVK::Log& log, const wchar_t* class_name, const TVK::SmartNames& names);

 private:
  bool Fill(const TVK::AtaSmart& smart, bool with_thresholds, ItemData& data) const;

  const TVK::Log& log_;
  const wchar_t* const class_name_;
  const TVK::SmartNames& names_;
};

/// SATA solid-state drives, by names of their own.
class SATASmartInfo : public SmartInfo {
 public:
  explicit SATASmartInfo(const TVK::Log& log);
};
