// What the two datasets of drives' self-tests do alike.
#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "monitors/storage/drive_monitor.h"
#include "monitors/storage/self_test_settings.h"

namespace TVK {

/// How they differ. Constant.
struct SelfTestMonitorTraits {
  StorageCollector::DriveKind kind;  ///< Of the drives that are tested.
  const DatasetRow& smart_row;       ///< The dataset of the same drives' health.
  const wchar_t* smart_context_key;  ///< Names a drive's context there in its context here.
  const wchar_t* bus_type;           ///< "DriveBusType" of the dataset contexts.
  MonitorLine event_failure;         ///< The stop event could not be made: the error.
  MonitorLine described;             ///< Debug; model and hashed serial number of a drive.
  SelfTestSettings (*read_settings)(const SettingTexts& settings);
  /// Debug: how the wait for the contexts of the other datasets ended.
  void (*log_start)(const Log& log, bool stopping, bool found_contexts);
};

/// See EventMonitorBase for who calls what. StartMonitor returns when the tests are planned; it gives up, for good,
/// when the contexts of the storage dataset or of the drives' health do not come within a minute each. One test at a
/// time; a stop aborts it.
class SelfTestMonitor : public DriveMonitor {
 public:
  void StartMonitor(std::wstring name) override;

  /// A round: tests every drive that has a context, and writes what each test came to. Nothing while a round goes on,
  /// as when the interval changed in the middle of one. A drive that runs a test already is come back to ten minutes
  /// later, once. Of a round that a stop or a kill ended the rest comes with the next start, as does a drive that was
  /// busy both times.
  void LogItemEvent() { RunRound(Round::kWhole); }

 protected:
  static constexpr wchar_t kResult[] = L"ReadSelfTestResult";

  SelfTestMonitor(const MonitorServices& services, const MonitorIdentity& identity, const SelfTestMonitorTraits& traits,
                  const wchar_t* settings_caller);

  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;
  bool Qualifies(const StorageCollector::HardDisk& drive) const override;
  void AddFacts(const StorageCollector::HardDisk& drive, ItemData& facts) override;
  void LogDescribed(const std::wstring& model, const std::wstring& hashed_serial_number) const override;
  bool TakesDeviceInit(const std::wstring& /*device_key*/) override { return false; }

 private:
  enum class Round { kWhole, kRest };
  void RunRound(Round round);
  /// False while one goes on, which goes on to a whole one when that is asked for in the rest of one.
  bool BeginRound(Round round);
  /// Whether a whole round follows the one that is over; no round goes on any more when not.
  bool GoesOnToWhole();
  void TestRound(Round round);
  /// Takes from `untested` the drives that are through; returns those that were busy with another test.
  std::vector<KeyedDrive> TestDrives(const std::vector<KeyedDrive>& drives, std::wstring& untested);
  /// Whether a round was ended in its middle, and the next one is not due anyway.
  bool IsRestOwed();
  /// The keys of the drives that a round has not come to, each with a blank behind it; empty when there is none.
  std::wstring ReadUntested() const;
  /// Of the drive's last context in another dataset; empty when it has none.
  std::wstring ContextIn(const DatasetRow& row, const std::wstring& key) const;

  const SelfTestMonitorTraits& traits_;
  std::atomic<std::uint32_t> interval_ms_ = 0;  ///< Of the settings.
  std::mutex round_mutex_;                      ///< Guards what follows.
  std::optional<Round> round_ = std::nullopt;   ///< That goes on.
  bool whole_owed_ = false;                     ///< A whole round fell due while the rest of one ran.
};

}  // namespace TVK
