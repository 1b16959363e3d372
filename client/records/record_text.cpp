#include "client/records/record_text.h"

#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "client/records/record_fields.h"
#include "client/records/record_json.h"
#include "client/text/string.h"

namespace TVK {
namespace {

constexpr std::size_t kTerminalWidth = 120;
constexpr std::size_t kTimeWidth = 19;  // "2026-01-31 09:05:00"
constexpr std::size_t kDatasetWidth = 18;
constexpr std::size_t kItemWidth = 22;
constexpr std::size_t kDataColumn = kTimeWidth + kDatasetWidth + kItemWidth + 6;

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

// Characters, as a terminal counts them: every byte that does not continue a UTF-8 sequence.
std::size_t Width(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text)
    width += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return width;
}

void AppendColumn(std::string& line, const std::string& text, std::size_t width) {
  const std::string shown = HarmlessText(text);
  line += shown;
  const std::size_t used = Width(shown);
  line.append(used < width ? width - used + 2 : 2, ' ');
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

std::string RecordTableHeader() {
  std::string line;
  AppendColumn(line, "TIME", kTimeWidth);
  AppendColumn(line, "DATASET", kDatasetWidth);
  AppendColumn(line, "ITEM", kItemWidth);
  return line + "DATA\n";
}

std::string RecordTableLine(RecordKind kind, std::string_view json) {
  const std::optional<Summary> summary = Summarise(kind, json);
  if (!summary) return HarmlessText(json) + '\n';
  std::string line;
  std::string time = summary->time.substr(0, kTimeWidth);
  if (time.size() > 10 && time[10] == 'T') time[10] = ' ';
  AppendColumn(line, time, kTimeWidth);
  AppendColumn(line, summary->dataset, kDatasetWidth);
  AppendColumn(line, summary->item, kItemWidth);
  std::size_t column = Width(line);
  bool first = true;
  for (const auto& [key, value] : summary->data) {
    const std::string pair = HarmlessText(std::string(key).append(1, '=').append(value));
    if (!first && column + 1 + Width(pair) > kTerminalWidth) {
      line += '\n';
      line.append(kDataColumn, ' ');
      column = kDataColumn;
    } else if (!first) {
      line += ' ';
      ++column;
    }
    line += pair;
    column += Width(pair);
    first = false;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  return line + '\n';
}

std::string RecordCsvHeader() {
  return "time,kind,dataset,item,context,data\r\n";
}

std::string RecordCsvLine(RecordKind kind, std::string_view json) {
  const std::optional<Summary> summary = Summarise(kind, json);
  std::string line = summary ? CsvField(summary->time) : "";
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
