// A drive as the monitors see it.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/storage/ata_self_test_log.h"
#include "client/storage/ata_smart.h"
#include "client/storage/drive_lane.h"
#include "client/storage/nvme_health.h"
#include "client/storage/nvme_self_test_log.h"
#include "platform/drives.h"

namespace StorageCollector {

/// Which kind of drive it is, as the datasets tell them apart.
enum class DriveKind {
  kNvme,
  kSataSsd,
  kAta,  ///< Any other that speaks ATA: a disk, one behind a bridge, one that does not say whether it turns.
  kOther,
};

/// A question that was put to a drive, so that several drives are asked before the first is waited for. Waits for the
/// answer, or for the signal of `stop` (or null); once, and not beyond the collector of the drive.
template <typename Content>
using Asked = std::function<Reading<Content>(platform::Waitable* stop)>;

/// One attached drive. Copies are of the same drive. What it told of itself when it was found stays, but for one behind
/// a bridge, which each look at the drives asks again, since another disk may be in it; what is read is asked for anew
/// each time. A reading waits for its turn and for the drive, never beyond the limits of DriveLane, and
/// not beyond the signal of `stop` (null: none). Why a drive does not tell is logged once until that changes. A drive
/// that is asleep is not asked. Any thread; not beyond the collector that gave it.
class HardDisk {
 public:
  HardDisk(platform::Drives& drives, platform::DriveListing listing, std::shared_ptr<DriveLane> lane);

  std::wstring getDrivePath() const;
  /// Bus and medium: "NVMe SSD", "SATA SSD", "SATA HDD", "USB SSD", "SCSI HDD", "Card" and so on; the bus alone where
  /// it is not known whether the drive turns, "Other" for a bus without a name.
  std::wstring getDriveType() const;
  std::wstring getProductName() const;   ///< The model.
  std::wstring getSerialNumber() const;  ///< In clear: log getHashedSerialNumber.
  std::wstring getFirmwareVersion() const;
  /// The one form in which a serial number is logged and kept; empty for a drive that tells none.
  std::wstring getHashedSerialNumber() const;

  DriveKind kind() const;
  /// Whether it is known what it says of itself, and be it nothing. Until then, while it sleeps or does not answer, it
  /// is what the system knows of it, which may be another serial number.
  bool identified() const;
  const platform::DriveListing& listing() const { return listing_; }
  /// Whether the drive says that it tells of its health; true of NVMe drives, which must.
  bool supports_smart() const;

  Asked<TVK::NvmeHealth> AskNvmeHealth() const;
  Reading<TVK::NvmeHealth> ReadNvmeHealth(platform::Waitable* stop) const { return AskNvmeHealth()(stop); }
  /// The thresholds too, where the drive has them.
  Asked<TVK::AtaSmart> AskAtaSmart() const;
  Reading<TVK::AtaSmart> ReadAtaSmart(platform::Waitable* stop) const { return AskAtaSmart()(stop); }
  Reading<TVK::NvmeSelfTestLog> ReadNvmeSelfTestLog(platform::Waitable* stop) const;
  Reading<TVK::AtaSelfTestLog> ReadAtaSelfTestLog(platform::Waitable* stop) const;
  /// Whether an NVMe drive has self-tests; of ATA drives AtaSmart tells it.
  Reading<bool> ReadNvmeSelfTestSupport(platform::Waitable* stop) const;
  /// Content: the drive took it. `limit`: how long it is waited for. Why it did not is the caller's to log.
  Reading<bool> Do(platform::DriveAction action, platform::Waitable* stop,
                   std::chrono::milliseconds limit = DriveLane::kSessionLimit) const;

  DriveLane& lane() const { return *lane_; }

 private:
  friend class HardDiskInfoCollector;

  /// Asks the drive what it is unless that is known for good; what is to be called to wait for the answer, or nothing.
  std::function<void(platform::Waitable* stop)> AskIdentity() const;
  DriveIdentity identity() const;
  /// `what` is asked for, in the words of the log; empty: what comes of it is not logged.
  template <typename Content>
  Asked<Content> Ask(const std::wstring& what, std::function<Reading<Content>(platform::Drive&)> work,
                     std::chrono::milliseconds limit = DriveLane::kSessionLimit) const;

  platform::Drives* drives_;
  platform::DriveListing listing_;
  std::shared_ptr<DriveLane> lane_;
};

}  // namespace StorageCollector
