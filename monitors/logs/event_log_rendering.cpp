#include "monitors/logs/event_log_rendering.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "client/text/string.h"
#include "monitors/logs/event_data.h"
#include "monitors/logs/windows_logs_helper.h"

using TVK::String;

namespace {

constexpr wchar_t kEmptyEventData[] = L"<EventData />";

std::size_t CountCharacters(std::string_view utf8) {
  return static_cast<std::size_t>(
      std::ranges::count_if(utf8, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::wstring ValueText(const platform::EventLogValue& value, const platform::Clock& clock) {
  struct Writer {
    const platform::Clock& clock;
    std::wstring operator()(std::monostate) const { return {}; }
    std::wstring operator()(std::uint64_t number) const { return std::to_wstring(number); }
    std::wstring operator()(const std::string& text) const { return String::UTF8ToUTF16(text); }
    std::wstring operator()(platform::WallTime time) const {
      return TVK::EventTimeText(std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count(), clock);
    }
  };
  return std::visit(Writer{clock}, value);
}

void LogFailure(const platform::EventLogReading& reading, const TVK::Log& log, const std::wstring& caller) {
  using enum platform::EventLogFailure;
  switch (reading.failure) {
    case kNone:
      break;
    case kNotSupported:
      log.i(L"%s, this system has no event log that can be queried.\n", caller);
      break;
    case kChannelNotFound:
      log.e(L"%s, The requested channel was not found.\n", caller);
      break;
    case kInvalidQuery:
      log.e(L"%s, The query passed is invalid.\n", caller);
      break;
    case kQuery:
      log.e(L"%s, EvtQuery failed with %ul.\n", caller, reading.error);
      break;
    case kNext:
      log.e(L"%s, EvtNext failed with %ul\n", caller, reading.error);
      break;
    case kCreateRenderContext:
      log.e(L"%s, EvtCreateRenderContext failed with %ul", caller, reading.error);
      break;
    case kRenderValues:
      log.e(L"%s, WITH_CONTEXT EvtRender failed with %d", caller, reading.error);
      break;
    case kRenderXml:
      log.e(L"%s, NO_CONTEXT EvtRender failed with %d\n", caller, reading.error);
      break;
    case kNoMemoryForValues:
      log.e(L"%s, Failed to allocate memory", caller);
      break;
    case kNoMemoryForXml:
      log.e(L"%s, malloc failed\n", caller);
      break;
  }
}

}  // namespace

namespace TVK {

std::wstring EventTimeText(std::int64_t unix_seconds, const platform::Clock& clock) {
  const platform::LocalTime local = clock.ToLocal(unix_seconds);
  const int offset = std::abs(local.utc_offset_minutes);
  return FormatWide(L"%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", local.year, local.month, local.day, local.hour,
                    local.minute, local.second, local.utc_offset_minutes < 0 ? L'-' : L'+', offset / 60, offset % 60);
}

std::wstring EventDataText(std::string_view xml) {
  const std::string_view data = EventDataElement(xml);
  if (data.empty()) return kEmptyEventData;
  return CountCharacters(data) > kLongestEventData ? kEventDataTooLarge : String::UTF8ToUTF16(std::string(data));
}

std::vector<std::string> EventLogPaths() {
  std::vector<std::string> paths;
  for (const EventLogField& field : kEventLogFields)
    paths.emplace_back(field.path);
  paths.emplace_back(kEventLogProviderPath);
  return paths;
}

std::wstring BoundedEventValue(std::wstring text) {
  if (text.size() <= kLongestEventValue) return text;
  constexpr std::uint32_t kHighSurrogate = 0xD800;
  const bool splits = (static_cast<std::uint32_t>(text[kLongestEventValue - 1]) & ~0x3FFU) == kHighSurrogate;
  text.resize(kLongestEventValue - (splits ? 1 : 0));
  return text;
}

RenderedEvent RenderEvent(const platform::EventLogRecord& record, const platform::Clock& clock) {
  RenderedEvent event;
  constexpr std::size_t kFields = std::size(kEventLogFields);
  for (std::size_t i = 0; i < std::min(kFields, record.values.size()); ++i) {
    const platform::EventLogValue& value = record.values[i];
    const std::wstring name = kEventLogFields[i].name;
    std::wstring text = BoundedEventValue(ValueText(value, clock));
    if (!text.empty()) event.fields[name] = std::move(text);
    if (const auto* const time = std::get_if<platform::WallTime>(&value)) {
      event.time_created = std::chrono::floor<std::chrono::seconds>(*time).time_since_epoch().count();
    }
    const auto* const number = std::get_if<std::uint64_t>(&value);
    if (name == L"Level" && number != nullptr) {
      constexpr std::uint64_t kMost = 255;  // a level has 8 bits
      std::wstring level_name = WindowsLogsHelper::getLevelName(static_cast<int>(std::min(*number, kMost)));
      if (!level_name.empty()) event.fields[L"LevelName"] = std::move(level_name);
    }
  }
  if (record.values.size() > kFields) event.provider_name = BoundedEventValue(ValueText(record.values[kFields], clock));
  event.fields[L"EventData"] = EventDataText(record.xml);
  return event;
}

EventLogAnswer ReadLoggedEvents(platform::EventLog& event_log, const platform::Clock& clock, const std::string& channel,
                                const std::string& xpath, std::size_t limit, const Log& log,
                                const std::wstring& caller) {
  const platform::EventLogQuery query{
      .channel = channel, .xpath = xpath, .value_paths = EventLogPaths(), .limit = limit};
  const platform::EventLogReading reading = event_log.Query(query);
  LogFailure(reading, log, caller);
  EventLogAnswer answer;
  answer.failure = reading.failure;
  for (const platform::EventLogRecord& record : reading.records)
    answer.events.push_back(RenderEvent(record, clock));
  return answer;
}

}  // namespace TVK
