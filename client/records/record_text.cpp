#include "client/records/record_text.h"

#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "client/records/flowing_text.h"
#include "client/records/list_lines.h"
#include "client/records/record_fields.h"
#include "client/records/record_json.h"
#include "client/text/moment.h"
#include "client/text/record_time.h"
#include "client/text/string.h"
#include "platform/civil_time.h"

namespace TVK {
namespace {

constexpr std::size_t kTimeWidth = 19;  // "2026-01-31 09:05:00"
constexpr std::size_t kDatasetWidth = 18;
constexpr std::size_t kItemWidth = 22;
constexpr std::size_t kDataColumn = kTimeWidth + kDatasetWidth + kItemWidth + 6;
// A table that is not as wide has its data in lines of their own, below the other columns.
constexpr std::size_t kNarrowest = 100;
constexpr std::size_t kNarrowIndent = 4;
// In one of 60 the longest common items still stand beside the others' column of datasets.
constexpr std::size_t kNarrowDatasetWidth = 14;
constexpr std::size_t kListIndent = 2;

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// What both forms show.
struct Summary {
  std::string time;
  std::string dataset;
  std::string item;
  std::string context;
  Pairs data;
  std::string data_json;
};

void AddData(const ItemData& data, Summary& summary) {
  for (const auto& [key, value] : data)
    summary.data.emplace_back(String::UTF16ToUTF8(key), String::UTF16ToUTF8(value));
}

template <typename Part>
void AddFields(const Part& part, std::span<const TextField<Part>> fields, Summary& summary) {
  for (const TextField<Part>& field : fields) {
    const std::wstring& value = (part.*field.get)();
    if (!value.empty()) summary.data.emplace_back(field.key, String::UTF16ToUTF8(value));
  }
}

std::optional<Summary> Summarise(RecordKind kind, std::string_view json) {
  Summary summary;
  switch (kind) {
    case RecordKind::kItem:
      if (const std::optional<ItemEvent> event = ItemEventFromJson(json)) {
        summary = {String::UTF16ToUTF8(event->item_time()),
                   String::UTF16ToUTF8(event->dataset_name()),
                   String::UTF16ToUTF8(event->item_name()),
                   String::UTF16ToUTF8(event->dataset_context_id()),
                   {},
                   ToJson(event->item_data())};
        AddData(event->item_data(), summary);
        return summary;
      }
      break;
    case RecordKind::kDataset:
      if (const std::optional<DatasetContext> context = DatasetContextFromJson(json)) {
        summary = {String::UTF16ToUTF8(context->dataset_context_datetime()),
                   String::UTF16ToUTF8(context->dataset_name()),
                   "(dataset context)",
                   String::UTF16ToUTF8(context->dataset_context_id()),
                   {},
                   ToJson(context->item_data())};
        AddData(context->item_data(), summary);
        return summary;
      }
      break;
    case RecordKind::kDevice:
      if (const std::optional<DeviceContext> context = DeviceContextFromJson(json)) {
        ItemData data;
        summary = {String::UTF16ToUTF8(context->device_context_datetime()), "", "(device context)",
                   String::UTF16ToUTF8(context->device_context_id()),       {}, ""};
        AddFields<DeviceInfo>(context->device_info(), kDeviceInfoFields, summary);
        AddFields<RegionInfo>(context->region_info(), kRegionInfoFields, summary);
        AddFields<TVKInfo>(context->tvk_info(), kTvkInfoFields, summary);
        for (const auto& [key, value] : summary.data)
          data[String::UTF8ToUTF16(key)] = String::UTF8ToUTF16(value);
        summary.data_json = ToJson(data);
        return summary;
      }
      break;
  }
  return std::nullopt;
}

// The record's time as `times` wants it; one that is none stays as it is.
std::string ShownTime(const std::string& time, const RecordTimes& times) {
  constexpr std::size_t kRecordTimeSize = 24;
  if (times.zone == RecordZone::kAsWritten || time.size() != kRecordTimeSize) return time;
  const std::optional<std::int64_t> moment = ParseMoment(time, *times.clock);
  if (!moment) return time;
  return String::UTF16ToUTF8(times.zone == RecordZone::kUtc ? FormatRecordTime(platform::ToCivil(*moment, 0))
                                                            : FormatRecordTime(*moment, *times.clock));
}

// "2026-01-31 09:05:00", without the zone.
std::string TableTime(const std::string& time, const RecordTimes& times) {
  std::string shown = ShownTime(time, times).substr(0, kTimeWidth);
  if (shown.size() > 10 && shown[10] == 'T') shown[10] = ' ';
  return shown;
}

std::string CsvField(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

std::size_t DatasetWidth(std::size_t width) {
  return width < kDataColumn ? kNarrowDatasetWidth : kDatasetWidth;
}

}  // namespace

std::string_view RecordKindName(RecordKind kind) {
  switch (kind) {
    case RecordKind::kItem:
      return "item";
    case RecordKind::kDataset:
      return "dataset";
    case RecordKind::kDevice:
      return "device";
  }
  return "";
}

std::string RecordTableHeader(const RecordTableStyle& style) {
  FlowingText text(style.width);
  constexpr const char* kTime[] = {"TIME", "TIME (local time)", "TIME (UTC)"};
  text.AddColumn(kTime[static_cast<std::size_t>(style.times.zone)], kTimeWidth);
  text.AddColumn("DATASET", DatasetWidth(style.width));
  text.AddColumn("ITEM", kItemWidth);
  if (style.width < kNarrowest) text.NewLine(kNarrowIndent);
  text.AddWord("DATA");
  return text.Finish();
}

std::string RecordTableLine(RecordKind kind, std::string_view json, const RecordTableStyle& style) {
  const std::optional<Summary> summary = Summarise(kind, json);
  if (!summary) return HarmlessText(json) + '\n';
  FlowingText text(style.width);
  text.AddColumn(TableTime(summary->time, style.times), kTimeWidth);
  text.AddColumn(summary->dataset, DatasetWidth(style.width));
  text.AddColumn(summary->item, kItemWidth);
  const std::size_t indent = style.width < kNarrowest ? kNarrowIndent : kDataColumn;
  text.SetIndent(indent);
  if (style.width < kNarrowest) text.NewLine(indent);
  for (const auto& [key, value] : summary->data) {
    const std::optional<std::vector<std::string>> lines = ListLines(value);
    if (!lines) {
      text.AddWord(std::string(key).append(1, '=').append(value));
      continue;
    }
    text.NewLine(indent);
    text.AddWord(key + ':');
    for (const std::string& line : *lines) {
      text.NewLine(indent + kListIndent);
      text.AddWord(line);
    }
    text.NewLine(indent);
  }
  return text.Finish();
}

std::string RecordCsvHeader() {
  return "time,kind,dataset,item,context,data\r\n";
}

std::string RecordCsvLine(RecordKind kind, std::string_view json, const RecordTimes& times) {
  const std::optional<Summary> summary = Summarise(kind, json);
  std::string line = summary ? CsvField(ShownTime(summary->time, times)) : "";
  line += ',';
  line += RecordKindName(kind);
  const std::string_view fields[] = {
      summary ? summary->dataset : std::string_view(), summary ? summary->item : std::string_view(),
      summary ? summary->context : std::string_view(), summary ? summary->data_json : json};
  for (const std::string_view field : fields)
    line += ',' + CsvField(field);
  return line + "\r\n";
}

}  // namespace TVK
