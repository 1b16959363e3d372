#include "monitors/logs/windows_logs_event_monitor.h"

#include <array>
#include <utility>

#include "client/text/string.h"

namespace {

using namespace std::chrono_literals;  // NOLINT(google-build-using-namespace): literals only

constexpr wchar_t kLoggedEvent[] = L"LoggedEvent";
constexpr wchar_t kSkipped[] = L"EventsSkipped";
constexpr std::chrono::milliseconds kMinute = 1min;

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"WindowsLogsEventMonitor Log Intialize OK!",
    .context_decision = L"WindowsLogsEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"WindowsLogsEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"WindowsLogs LogDevInitEvent failed",
    .item_failure = L"WindowsLogsEventMonitor LogItemEvent(%s) return error: %d",
};

/// What of an event is recorded in every scope of the dataset: nothing in which somebody could write free text.
constexpr std::array kPlainFields = {L"Channel", L"ProviderGuid", L"EventSourceName", L"Level",         L"LevelName",
                                     L"EventID", L"TaskCategory", L"Opcode",          L"EventRecordID", L"TimeCreated"};

std::wstring ValueOf(const TVK::RenderedEvent& event, const wchar_t* field) {
  const auto found = event.fields.find(field);
  return found == event.fields.end() ? std::wstring() : found->second;
}

template <typename Items, typename Text>
std::wstring Join(const Items& items, Text text) {
  std::wstring joined;
  for (const auto& item : items) {
    if (!joined.empty()) joined += L", ";
    joined += text(item);
  }
  return joined;
}

}  // namespace

const std::map<std::wstring, std::wstring> WindowsLogsEventMonitor::ITEM_EVENT_CONTEXT = {
    {kLoggedEvent, L"21CBB479-B6D9-4975-A7D9-6927615CC126"},
    {kSkipped, L"274B11FA-B34A-40C0-857F-50E8143D3AFD"},
    {kInterruptedItem, L"E04213C2-BB83-42E8-93F0-E738DB79B24D"},
};

WindowsLogsEventMonitor::WindowsLogsEventMonitor(const TVK::MonitorServices& monitor_services)
    : LogMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines, &kUseRow}),
      settings_(TVK::ReadWindowsLogsSettings({})) {}

void WindowsLogsEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!MakeStopEvent(L"", L"WindowsLogsEventMonitor StartMonitor CreateEvent() return error %d!")) return;
  UpdateDatasetSettingsFromConfigPolicy(dataset_id);  // the context says what is selected
  LogDatasetContext(false);
  InitialiseDevice();
  FollowLogs("tvk-logs");
}

bool WindowsLogsEventMonitor::UpdateThrottleParameters(std::map<std::wstring, std::wstring>& settings) {
  TVK::WindowsLogsSettings fresh = TVK::ReadWindowsLogsSettings(settings);
  LogMistakes(fresh.readings);
  bool described_else = false;
  bool other_query = false;
  {
    const std::lock_guard lock(mutex_);
    other_query = fresh.query != settings_.query;
    described_else = other_query || fresh.events_per_minute != settings_.events_per_minute;
    settings_ = std::move(fresh);
  }
  if (described_else && stop_event() != nullptr) LogDatasetContext(false);
  if (other_query) OnQueryChanged();
  return false;  // nothing of it is a schedule
}

std::optional<std::vector<TVK::DescribedDevice>> WindowsLogsEventMonitor::Describe() {
  const std::lock_guard lock(mutex_);
  const TVK::EventLogSelection& selection = settings_.selection;
  ItemData facts = {
      {L"Channels", Join(selection.channels, [](const std::wstring& channel) { return channel; })},
      {L"Levels", Join(selection.levels, TVK::WindowsLogsHelper::getLevelName)},
      {L"EventIds", settings_.event_ids},
      {L"TimeRange", std::to_wstring(settings_.time_range_ms)},
      {L"EventsPerMinute", std::to_wstring(settings_.events_per_minute)},
  };
  SanitizeItemData(facts, L"UnKnown");
  return std::vector<TVK::DescribedDevice>{{{}, std::move(facts)}};
}

std::string WindowsLogsEventMonitor::Query() {
  const std::lock_guard lock(mutex_);
  return TVK::String::UTF16ToUTF8(settings_.query);
}

bool WindowsLogsEventMonitor::TakeEvent(const TVK::RenderedEvent& event, const std::string& /*xml*/,
                                        const TVK::DatasetState& behind) {
  const auto now = services().runtime.clock().Steady();
  if (in_minute_ == 0 || now - minute_begin_ >= kMinute) {
    if (!Flush()) return false;
    minute_begin_ = now;
    in_minute_ = 0;
  }
  std::uint32_t most = 0;
  {
    const std::lock_guard lock(mutex_);
    most = settings_.events_per_minute;
  }
  // Behind one that was counted no other is recorded before that is written: the place would go back with it.
  if (in_minute_ >= most || skipped_.count > 0) {
    CountSkipped(event, behind);
    return true;
  }
  ItemData data = {{L"ProviderName", event.provider_name}};
  for (const wchar_t* const field : kPlainFields)
    data[field] = ValueOf(event, field);
  ItemData of_use = event.fields;
  for (const auto& [field, value] : data)
    of_use.erase(field);
  SanitizeItemData(data, L"UnKnown");
  taken_.push_back({std::move(data), behind, std::move(of_use)});
  ++in_minute_;
  return true;
}

void WindowsLogsEventMonitor::CountSkipped(const TVK::RenderedEvent& event, const TVK::DatasetState& behind) {
  const std::wstring time = ValueOf(event, L"TimeCreated");
  if (skipped_.count++ == 0) skipped_.first_time = time;
  skipped_.last_time = time;
  ++skipped_.by_level[ValueOf(event, L"LevelName")];
  skipped_.behind = behind;
}

std::chrono::milliseconds WindowsLogsEventMonitor::Patience() {
  if (skipped_.count == 0) return platform::kForever;
  const auto left = minute_begin_ + kMinute - services().runtime.clock().Steady();
  return std::max(std::chrono::ceil<std::chrono::milliseconds>(left), 0ms);
}

bool WindowsLogsEventMonitor::Flush() {
  return WriteTaken() && WriteSkipped();
}

bool WindowsLogsEventMonitor::WriteTaken() {
  if (WriteItems(kLoggedEvent, taken_) > 0) return false;
  taken_.clear();
  return true;
}

bool WindowsLogsEventMonitor::WriteSkipped() {
  if (skipped_.count == 0) return true;
  ItemData data = {{L"Count", std::to_wstring(skipped_.count)},
                   {L"FirstTime", skipped_.first_time},
                   {L"LastTime", skipped_.last_time}};
  for (const auto& [level, count] : skipped_.by_level)
    data[level.empty() ? L"OtherLevel" : level] = std::to_wstring(count);
  SanitizeItemData(data, L"UnKnown");
  if (WriteItem(kSkipped, std::move(data), {}, skipped_.behind) > 0) return false;
  skipped_ = {};
  return true;
}
