// The dataset of what the system's event logs tell.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "monitors/logs/log_monitor.h"
#include "monitors/logs/windows_logs_settings.h"

/// See EventMonitorBase for who calls what. Every event that the settings select becomes an item, at most so many in a
/// minute; those beyond are counted by level, in an item of their own at the minute's end. What an event says, and of
/// which process, is recorded at the scope "full" alone.
class WindowsLogsEventMonitor final : public TVK::LogMonitor {
 public:
  static constexpr const TVK::DatasetRow& kRow = TVK::DatasetRowNamed(L"EventViewerLogsEvent");
  static constexpr TVK::DatasetRow kUseRow = TVK::WithScopes(kRow, L"full");
  inline static const std::wstring dataset_id{kRow.id};
  inline static const std::wstring dataset_name{kRow.name};
  inline static const std::wstring telemtry_scope_supported{kRow.scopes};
  /// Item name to item id.
  static const std::map<std::wstring, std::wstring> ITEM_EVENT_CONTEXT;

  explicit WindowsLogsEventMonitor(const TVK::MonitorServices& services);

  void StartMonitor(std::wstring name) override;

 protected:
  bool UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) override;
  /// What the settings select.
  std::optional<std::vector<TVK::DescribedDevice>> Describe() override;

  std::string Query() override;
  bool TakeEvent(const TVK::RenderedEvent& event, const std::string& /*xml*/, const TVK::DatasetState& behind) override;
  bool WriteTaken() override;
  std::chrono::milliseconds Patience() override;
  bool Flush() override;

 private:
  /// The events beyond those of a minute.
  struct Skipped {
    std::uint64_t count = 0;
    std::map<std::wstring, std::uint64_t> by_level = {};  ///< By name.
    std::wstring first_time = {};                         ///< Of the events themselves.
    std::wstring last_time = {};
    TVK::DatasetState behind = {};
  };

  bool WriteSkipped();
  void CountSkipped(const TVK::RenderedEvent& event, const TVK::DatasetState& behind);

  mutable std::mutex mutex_;  ///< Guards settings_.
  TVK::WindowsLogsSettings settings_;
  // The reading thread's own.
  platform::SteadyTime minute_begin_{};
  std::uint32_t in_minute_ = 0;  ///< Taken since minute_begin_.
  std::vector<NewItem> taken_;   ///< To be recorded in one commit, so that a flood costs few flushes of the disk.
  Skipped skipped_;
};
