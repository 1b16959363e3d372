#include "client/store/record_row.h"

#include "client/records/record_json.h"
#include "client/text/string.h"

namespace TVK {

bool OfOneSeries(const RecordRow& one, const RecordRow& other) {
  return one.kind == other.kind && one.dataset_id == other.dataset_id && one.key == other.key;
}

RecordRow RowOf(const ItemEvent& event, const DatasetState& state) {
  return {.kind = RecordKind::kItem,
          .json = ToJson(event),
          .dataset_id = String::UTF16ToUTF8(event.dataset_id()),
          .key = String::UTF16ToUTF8(event.item_id()),
          .context_id = {},
          .dataset_context_id = String::UTF16ToUTF8(event.dataset_context_id()),
          .device_context_id = String::UTF16ToUTF8(event.device_context_id()),
          .state_key = String::UTF16ToUTF8(state.key),
          .state_value = String::UTF16ToUTF8(state.value)};
}

RecordRow RowOf(const std::wstring& dataset_id, const DatasetState& state) {
  return {.kind = RecordKind::kItem,
          .json = {},
          .dataset_id = String::UTF16ToUTF8(dataset_id),
          .key = {},
          .context_id = {},
          .dataset_context_id = {},
          .device_context_id = {},
          .state_key = String::UTF16ToUTF8(state.key),
          .state_value = String::UTF16ToUTF8(state.value)};
}

RecordRow RowOf(const DatasetContext& context, const std::wstring& device_key) {
  return {.kind = RecordKind::kDataset,
          .json = ToJson(context),
          .dataset_id = String::UTF16ToUTF8(context.dataset_id()),
          .key = String::UTF16ToUTF8(device_key),
          .context_id = String::UTF16ToUTF8(context.dataset_context_id()),
          .dataset_context_id = {},
          .device_context_id = String::UTF16ToUTF8(context.device_context_id()),
          .state_key = {},
          .state_value = {}};
}

RecordRow RowOf(const DeviceContext& context) {
  return {.kind = RecordKind::kDevice,
          .json = ToJson(context),
          .dataset_id = {},
          .key = {},
          .context_id = String::UTF16ToUTF8(context.device_context_id()),
          .dataset_context_id = {},
          .device_context_id = {},
          .state_key = {},
          .state_value = {}};
}

}  // namespace TVK
