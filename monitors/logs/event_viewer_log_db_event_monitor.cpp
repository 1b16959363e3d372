#include "monitors/logs/event_viewer_log_db_event_monitor.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <set>
#include <tuple>

#include "client/store/kept_state.h"
#include "client/text/string.h"
#include "monitors/logs/event_log_rendering.h"
#include "monitors/logs/reading_begin.h"
#include "monitors/logs/windows_logs_helper.h"
#include "platform/event_log_reader.h"

namespace {

using TVK::String;

constexpr wchar_t kPerDay[] = L"ReadLogDBPerDay";
constexpr std::uint32_t kDayMs = 86'400'000;
constexpr std::size_t kBatch = 1024;
constexpr std::array kChannels = {"Application", "Security", "Setup", "System"};

constexpr TVK::MonitorLines kLines = {
    .log_opened = L"EventViewerLogDBEventMonitor Log Intialize OK!",
    .context_decision = L"EventViewerLogDBEventMonitor LogDatasetContext bIsNeedNewDatasetContext is %s.",
    .context_failure = L"EventViewerLogDBEventMonitor LogDatasetContext LogDatasetContext() return error: %d",
    .init_failure = L"EventViewerLogDB LogDevInitEvent failed",
    .item_failure = L"EventViewerLogDBEventMonitor LogItemEvent(%s) return error: %d",
};

struct Kind {
  std::string provider;
  std::uint64_t id = 0;
  std::uint64_t level = 0;

  auto operator<=>(const Kind&) const = default;
};
using Counts = std::map<Kind, std::uint64_t>;

std::uint64_t NumberOf(const platform::EventLogValue& value) {
  const auto* const number = std::get_if<std::uint64_t>(&value);
  return number == nullptr ? 0 : *number;
}

std::string TextOf(const platform::EventLogValue& value) {
  const auto* const text = std::get_if<std::string>(&value);
  if (text == nullptr) return {};
  if (text->size() <= TVK::kLongestEventValue) return *text;
  return String::UTF16ToUTF8(TVK::BoundedEventValue(String::UTF8ToUTF16(*text)));
}

/// The largest first, with what the others come to.
void AddCounts(const Counts& counts, ItemData& data) {
  std::vector<std::pair<Kind, std::uint64_t>> sorted(counts.begin(), counts.end());
  std::ranges::stable_sort(sorted, std::ranges::greater(), &std::pair<Kind, std::uint64_t>::second);
  Json::Value listed(Json::arrayValue);
  std::uint64_t all = 0;
  std::uint64_t others = 0;
  for (const auto& [kind, count] : sorted) {
    all += count;
    if (listed.size() == EventViewerLogDBEventMonitor::kMostCounts) {
      others += count;
      continue;
    }
    Json::Value one(Json::objectValue);
    one["provider"] = kind.provider;
    one["id"] = Json::UInt64(kind.id);
    one["level"] = Json::UInt64(kind.level);
    one["count"] = Json::UInt64(count);
    listed.append(one);
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  data[L"EventsOfTheDay"] = std::to_wstring(all);
  data[L"Counts"] = String::UTF8ToUTF16(Json::writeString(builder, listed));
  if (others != 0) data[L"OtherEvents"] = std::to_wstring(others);
}

void AddStatus(const platform::EventLogStatus& status, const platform::Clock& clock, ItemData& data) {
  const auto add = [&](const wchar_t* key, const std::optional<std::uint64_t>& number) {
    if (number) data[key] = std::to_wstring(*number);
  };
  add(L"Events", status.events);
  add(L"Bytes", status.bytes);
  add(L"MostBytes", status.most_bytes);
  if (status.bytes && status.most_bytes && *status.most_bytes != 0) {
    const double percent = 100.0 * static_cast<double>(*status.bytes) / static_cast<double>(*status.most_bytes);
    data[L"FillLevel"] = std::to_wstring(static_cast<std::uint64_t>(std::min(percent, 100.0)));
  }
  if (status.oldest) {
    data[L"OldestEvent"] =
        TVK::EventTimeText(std::chrono::floor<std::chrono::seconds>(*status.oldest).time_since_epoch().count(), clock);
  }
}

}  // namespace

const std::map<std::wstring, std::wstring> EventViewerLogDBEventMonitor::ITEM_EVENT_CONTEXT = {
    {kPerDay, L"E4A24768-810B-4C11-B88D-0FDD326D7B50"},
};

EventViewerLogDBEventMonitor::EventViewerLogDBEventMonitor(const TVK::MonitorServices& monitor_services)
    : ScheduledMonitor(monitor_services, {kRow, ITEM_EVENT_CONTEXT, kLines},
                       TVK::ReportRule{.item = kPerDay,
                                       .report = [this] { ReadLogDBPerDay(); },
                                       .caller = L"EventViewerLogDBEventMonitor::StartMonitor",
                                       .first_is_due = true}) {}

void EventViewerLogDBEventMonitor::StartMonitor(std::wstring /*name*/) {
  if (!MakeStopEvent(L"", L"EventViewerLogDBEventMonitor StartMonitor CreateEvent() return error %d!")) return;
  LogDatasetContext(false);
  InitialiseDevice();
  started_ = TVK::FirstSecondOfConsent(services().runtime.clock());
  Window();  // notes that the consent is there again, were the first report to come after a kill
  if (!stopping()) ReportEvery(kDayMs);
}

void EventViewerLogDBEventMonitor::StopMonitor() {
  ScheduledMonitor::StopMonitor();
  if (!Admits()) services().store.KeepState(dataset_id, {TVK::kBookmarkState, TVK::kWithdrawnPlace});
}

std::optional<std::uint64_t> EventViewerLogDBEventMonitor::Window() {
  if (!begin_) {
    std::wstring kept;
    const int result = TVK::ReadKeptState(services().store, dataset_id, TVK::kBookmarkState, kept);
    if (result != 0 && result != TVK::kStoreNotFound) return std::nullopt;
    const auto begin = TVK::ReadBegin(kept);
    begin_ = begin ? begin->seconds : kept == TVK::kWithdrawnPlace ? started_ : 0;
    // Also where nothing was kept: a start without consent marks those that there are.
    const std::wstring since = TVK::SinceText(*begin_);
    if (kept != since) services().store.KeepState(dataset_id, {TVK::kBookmarkState, since});
  }
  const auto now = services().runtime.clock().Now().time_since_epoch();
  const auto admitted = std::chrono::floor<std::chrono::milliseconds>(now - std::chrono::seconds(*begin_)).count();
  constexpr std::int64_t kMost = kDayMs - 1;  // what is a day old was of the report before
  return static_cast<std::uint64_t>(std::clamp<std::int64_t>(admitted, 0, kMost));
}

std::optional<std::uint64_t> EventViewerLogDBEventMonitor::AwaitWindow() {
  std::chrono::milliseconds retry = TVK::kFirstLogRetry;
  std::optional<std::uint64_t> window = Window();
  if (!window) log_.e(L"%s: since when is counted cannot be told; it is tried again", Operation(L"ReadLogDBPerDay"));
  for (; !window && Pause(retry); retry = std::min(2 * retry, TVK::kLastLogRetry))
    window = Window();
  return window;
}

std::optional<std::vector<TVK::DescribedDevice>> EventViewerLogDBEventMonitor::Describe() {
  std::wstring channels;
  for (const char* const channel : kChannels)
    channels.append(channels.empty() ? L"" : L", ").append(String::UTF8ToUTF16(channel));
  return std::vector<TVK::DescribedDevice>{{{}, {{L"Channels", channels}}}};
}

void EventViewerLogDBEventMonitor::ReadLogDBPerDay() {
  if (!Admits()) return;
  const std::optional<std::uint64_t> window = AwaitWindow();
  if (!window || !Admits()) return;
  platform::EventLog& log = services().machine.event_log();
  std::wstring query;
  TVK::WindowsLogsHelper::generateQuery(L"1111", L"", L"00000000", *window, query);
  const platform::EventLogReaderOpening opening =
      log.OpenReader(services().runtime, {.query = String::UTF16ToUTF8(query),
                                          .value_paths = {"Event/System/Channel", "Event/System/Provider/@Name",
                                                          "Event/System/EventID", "Event/System/Level"},
                                          .xml = false});
  bool reads = opening.reader != nullptr;
  if (!reads) log_.e(L"%s: nothing can be counted, error %d", Operation(L"ReadLogDBPerDay"), opening.error);
  std::set<std::string> partly_read;
  std::map<std::string, Counts> counts;
  for (bool more = opening.reader != nullptr; more && !stopping();) {
    const platform::EventLogBatch batch = opening.reader->Take(kBatch);
    for (const platform::EventLogNotice& notice : batch.notices) {
      partly_read.insert(notice.channel);
      if (notice.channel.empty()) reads = false;
    }
    for (const platform::EventLogEvent& event : batch.events) {
      const auto& values = event.record.values;
      if (values.size() == 4)
        ++counts[TextOf(values[0])][{TextOf(values[1]), NumberOf(values[2]), NumberOf(values[3])}];
    }
    more = batch.more;
  }
  std::vector<NewItem> items;
  for (const char* const channel : kChannels) {
    if (stopping()) return;
    const platform::EventLogStatus status = log.ReadStatus(channel);
    if (status.failure != platform::EventLogFailure::kNone) {
      log_.i(L"%s: nothing is told of the channel %s, error %d", Operation(L"ReadLogDBPerDay"),
             String::UTF8ToUTF16(channel), status.error);
      continue;
    }
    ItemData data = {{L"Channel", String::UTF8ToUTF16(channel)}};
    AddStatus(status, services().runtime.clock(), data);
    if (reads && !partly_read.contains(channel)) AddCounts(counts[channel], data);
    items.push_back({.data = std::move(data)});
  }
  // All or none: the next report, also that of another start, comes a day behind the first of them.
  std::chrono::milliseconds retry = TVK::kFirstLogRetry;
  for (; WriteItems(kPerDay, items) > 0 && Pause(retry); retry = std::min(2 * retry, TVK::kLastLogRetry)) {
  }
}
