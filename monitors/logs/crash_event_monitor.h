// The dataset of crashes, of programs and of the system.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "monitors/logs/crash_report.h"
#include "monitors/logs/log_monitor.h"

/// See EventMonitorBase for who calls what. A crash is an item; several of one kind, one after the other and logged
/// within kSameWithin of the first, are one item with their count. Memory errors of the running boot are told as the
/// memory controllers count them, where they do: at the start, once a day, and when the log tells of one.
class CrashEventMonitor final : public TVK::LogMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"CrashEvent");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  static constexpr std::chrono::seconds kSameWithin{10};
  static constexpr std::chrono::hours kMemoryLook{24};

  explicit CrashEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;

 protected:
  bool BeginReading(bool withdrawn) override;
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;

  std::string Query() override { return TVK::CrashQuery(); }
  bool TakeEvent(const TVK::RenderedEvent& event, const std::string& xml, const TVK::DatasetState& behind) override;
  std::chrono::milliseconds Patience() override;
  bool Flush() override;

 private:
  /// What waits to be written.
  struct Counted {
    TVK::CrashReport report;
    std::uint64_t count = 0;
    platform::SteadyTime begin{};
    std::wstring time = {};                         ///< Of the first, as records have it.
    std::optional<std::int64_t> time_created = {};  ///< The same, in seconds since 1970.
    TVK::DatasetState behind = {};
  };

  /// Writes what was counted since the store last knew; nothing before BeginReading. False when the store failed. Any
  /// thread.
  bool LookAtMemory();
  /// The same with memory_mutex_ held; without `tell` the store is just made to know it.
  bool TellMemory(bool tell);
  bool TellMemoryErrors(const platform::MemoryErrors& counted, const std::wstring& boot, bool tell);
  /// Whether the log's `event` is counted by a controller, too: one before the boot is not.
  bool IsCounted(const TVK::CrashReport& report, const TVK::RenderedEvent& event);

  std::optional<Counted> counted_;  ///< The reading thread's own.
  std::mutex memory_mutex_;         ///< Held while one thread looks.
  bool memory_known_ = false;       ///< Guarded by memory_mutex_: BeginReading was told, and the store knows it.
};
