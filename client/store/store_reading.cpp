#include "client/store/store_reading.h"

#include <utility>

#include "client/records/record_json.h"
#include "client/store/event_data_logging.h"
#include "client/store/loss_log.h"
#include "client/text/string.h"

namespace TVK {
namespace {

constexpr wchar_t kRead[] = L"EventDataLogging::Read";

std::optional<RecordRow> Parse(std::string_view json, std::string_view device_key, DatasetContext& context) {
  std::optional<DatasetContext> read = DatasetContextFromJson(json);
  if (!read) return std::nullopt;
  context = std::move(*read);
  return RowOf(context, String::UTF8ToUTF16(device_key));
}

std::optional<RecordRow> Parse(std::string_view json, std::string_view /*device_key*/, DeviceContext& context) {
  std::optional<DeviceContext> read = DeviceContextFromJson(json);
  if (!read) return std::nullopt;
  context = std::move(*read);
  return RowOf(context);
}

std::optional<std::string> Utf8(const std::optional<std::wstring>& text) {
  if (!text) return std::nullopt;
  return String::UTF16ToUTF8(*text);
}

}  // namespace

// A context that was read.
template <typename Context>
struct StoreReading::ReadContext {
  Context context;
  std::optional<RecordRow> row;  ///< Nothing when it is not readable.
  std::int64_t sequence = 0;
};

template <typename Question>
int StoreReading::Ask(const Question& question) {
  const int code = connections_.Ask(question);
  if (code != 0 && code != kStoreNotFound) {
    log_.e(L"%s: reading failed, error %d (%s)", kRead, code, StoreErrorText(code));
  }
  return code;
}

int StoreReading::Unreadable() {
  log_.e(L"%s: a stored record is not readable", kRead);
  return SQLITE_CORRUPT;
}

// What is known was readable when it came to be.
template <typename Context>
int StoreReading::Give(const RecordRow& known, Context& context) {
  return Parse(known.json, known.key, context) ? 0 : Unreadable();
}

// Runs `query` on the reading side and turns the text that it gives into a record.
template <typename Record, typename Query>
int StoreReading::Read(Record& record, std::optional<Record> (*from_json)(std::string_view), const Query& query) {
  std::optional<Record> read;
  const int code = Ask([&](StoreQueries& queries) {
    return query(queries, [&](const FoundRecord& found) { read = from_json(found.json); });
  });
  if (code != 0) return code;
  if (!read) return Unreadable();
  record = std::move(*read);
  return 0;
}

// Newest first, those that are not readable among them; the others are known from now on.
template <typename Context>
int StoreReading::ReadContexts(RecordKind kind, const std::string& dataset_id, const std::optional<std::string>& key,
                               std::size_t at_most, std::vector<ReadContext<Context>>& contexts) {
  const std::lock_guard no_retention(use_mutex_);
  const int code = Ask([&](StoreQueries& queries) {
    contexts.clear();
    return queries.LastContexts(kind, dataset_id, key, at_most, [&](const FoundRecord& found) {
      ReadContext<Context>& read = contexts.emplace_back();
      read.row = Parse(found.json, found.key, read.context);
      read.sequence = found.sequence;
    });
  });
  if (code != 0) return code;
  for (const ReadContext<Context>& read : contexts) {
    if (!read.row) continue;
    if (const int failed = KnowDeviceContextOf(*read.row); failed != 0) return failed;
    contexts_.NoteGiven(*read.row, read.sequence);
  }
  return 0;
}

// The last context of a dataset's device, of any of them without `key`. What waits to be written is newer than all
// that is in the file; when that cannot be read, what was written or given before is the best answer.
template <typename Context>
int StoreReading::ReadLastContext(RecordKind kind, const std::string& dataset_id, const std::optional<std::string>& key,
                                  Context& context) {
  if (const auto waiting = contexts_.Newest(kind, dataset_id, key, /*only_unwritten=*/true)) {
    return Give(*waiting, context);
  }
  std::vector<ReadContext<Context>> last;
  if (const int code = ReadContexts(kind, dataset_id, key, 1, last); code != 0) {
    const auto known = contexts_.Newest(kind, dataset_id, key, /*only_unwritten=*/false);
    return known ? Give(*known, context) : code;
  }
  if (last.empty()) return kStoreNotFound;
  if (!last.front().row) return Unreadable();
  context = std::move(last.front().context);
  return 0;
}

int StoreReading::KnowDeviceContextOf(const RecordRow& row) {
  const std::string& id = row.device_context_id;
  if (id.empty() || contexts_.Get(RecordKind::kDevice, id)) return 0;
  return Ask([&](StoreQueries& queries) {
    return queries.DeviceContextById(id, [&](const FoundRecord& found) {
      DeviceContext context;
      if (auto device = Parse(found.json, found.key, context)) contexts_.NoteGiven(*device, found.sequence);
    });
  });
}

int StoreReading::LastItem(const std::wstring& dataset_id, const std::wstring& item_id, ItemEvent& event) {
  const std::string dataset = String::UTF16ToUTF8(dataset_id);
  const std::string item = String::UTF16ToUTF8(item_id);
  return Read(event, ItemEventFromJson, [&](StoreQueries& queries, const StoreQueries::Take& take) {
    return queries.LastItem(dataset, item, take);
  });
}

int StoreReading::LastItemOfAnyDataset(const std::wstring& item_id, ItemEvent& event) {
  const std::string item = String::UTF16ToUTF8(item_id);
  return Read(event, ItemEventFromJson, [&](StoreQueries& queries, const StoreQueries::Take& take) {
    return queries.LastItemOfAnyDataset(item, take);
  });
}

int StoreReading::Items(const std::wstring& dataset_id, std::int64_t first, std::int64_t end,
                        std::vector<ItemEvent>& events) {
  std::vector<ItemEvent> read;
  const std::string dataset = String::UTF16ToUTF8(dataset_id);
  const int code = Ask([&](StoreQueries& queries) {
    read.clear();
    return queries.Items(dataset, first, end, [&](std::int64_t id, std::string_view json) {
      if (std::optional<ItemEvent> event = ItemEventFromJson(json)) {
        read.push_back(std::move(*event));
      } else {
        log_.e(L"%s: item event %d is not readable and is passed over", L"EventDataLogging::ReadItemEvents", id);
      }
    });
  });
  if (code == 0) events = std::move(read);
  return code;
}

int StoreReading::LastContext(const std::wstring& dataset_id, const std::optional<std::wstring>& device_key,
                              DatasetContext& context) {
  return ReadLastContext(RecordKind::kDataset, String::UTF16ToUTF8(dataset_id), Utf8(device_key), context);
}

int StoreReading::LastContext(DeviceContext& context) {
  return ReadLastContext(RecordKind::kDevice, {}, std::string(), context);
}

int StoreReading::ContextById(const std::wstring& device_context_id, DeviceContext& context) {
  const std::string id = String::UTF16ToUTF8(device_context_id);
  if (const auto known = contexts_.Get(RecordKind::kDevice, id)) return Give(*known, context);
  return Read(context, DeviceContextFromJson, [&](StoreQueries& queries, const StoreQueries::Take& take) {
    return queries.DeviceContextById(id, take);
  });
}

int StoreReading::EarlierContexts(const std::wstring& dataset_id, const std::optional<std::wstring>& device_key,
                                  std::vector<DatasetContext>& contexts) {
  const std::string dataset = String::UTF16ToUTF8(dataset_id);
  const std::optional<std::string> key = Utf8(device_key);
  std::vector<DatasetContext> earlier;
  const std::vector<RecordRow> waiting = contexts_.Unwritten();
  for (auto row = waiting.rbegin(); row != waiting.rend(); ++row) {
    if (row->kind != RecordKind::kDataset || row->dataset_id != dataset || (key && row->key != *key)) continue;
    earlier.emplace_back();
    static_cast<void>(Give(*row, earlier.back()));
  }
  std::vector<ReadContext<DatasetContext>> read;
  if (const int code = ReadContexts(RecordKind::kDataset, dataset, key, kMostEarlierContexts, read); code != 0) {
    return code;
  }
  for (ReadContext<DatasetContext>& each : read) {
    if (each.row) {
      earlier.push_back(std::move(each.context));
    } else {
      log_.e(L"%s: context %d is not readable and is passed over", kRead, each.sequence);
    }
  }
  if (earlier.size() > kMostEarlierContexts) earlier.resize(kMostEarlierContexts);
  contexts = std::move(earlier);
  return 0;
}

int StoreReading::State(const std::wstring& dataset_id, const std::wstring& key, std::wstring& value) {
  std::string read;
  const int code = Ask([&](StoreQueries& queries) {
    return queries.State(String::UTF16ToUTF8(dataset_id), String::UTF16ToUTF8(key), read);
  });
  if (code == 0) value = String::UTF8ToUTF16(read);
  return code;
}

}  // namespace TVK
