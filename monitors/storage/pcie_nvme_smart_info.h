// What records tell of the health of an NVMe drive.
#pragma once

#include <functional>
#include <optional>

#include "client/log/log.h"
#include "client/storage/nvme_health.h"
#include "tvk/records.h"

/// One drive. One thread at a time.
class PCIeNVMeSmartInfo {
 public:
  /// Reads the drive's health; 0, or why there is none.
  using Reader = std::function<int(TVK::NvmeHealth& health)>;

  static constexpr int kErrorNotRead = 1168;  ///< ERROR_NOT_FOUND: nothing was read before.
  static constexpr int kErrorException = -1;

  /// `log` must outlive the object.
  explicit PCIeNVMeSmartInfo(const TVK::Log& log) : log_(log) {}

  /// Calls `read` and keeps what it gives in place of what was kept. Returns 0; or, with a line in the log and nothing
  /// kept, what `read` returned, or kErrorException when it threw a std::exception.
  int ReadSMARTInfo(const Reader& read);

  /// Sets in `data` an entry for each field of what was read, as decimal numbers; a temperature sensor that the drive
  /// does not have gets none. Returns 0; or kErrorNotRead, with a line in the log and `data` as it was.
  int GetSmartInfoList(ItemData& data) const;

 private:
  int Guard(const wchar_t* function, const std::function<int()>& work) const;

  const TVK::Log& log_;
  std::optional<TVK::NvmeHealth> health_;
};
