// A record as the store keeps it: its JSON, and beside it what the store looks for and refers by. All texts are UTF-8.
#pragma once

#include <string>

#include "client/records/record_kind.h"
#include "client/store/dataset_state.h"
#include "tvk/records.h"

namespace TVK {

struct RecordRow {
  RecordKind kind = RecordKind::kItem;
  std::string json;
  std::string dataset_id;          ///< Empty for device contexts.
  std::string key;                 ///< Item id of an item event, device key of a dataset context, else empty.
  std::string context_id;          ///< A context's own id.
  std::string dataset_context_id;  ///< Of the dataset context that an item event names; empty: of none.
  std::string device_context_id;   ///< Of the device context that an item event or a dataset context names.
  std::string state_key;           ///< Of what the dataset keeps beside an item event; empty: nothing.
  std::string state_value;

  /// Else it is what a dataset keeps by itself.
  bool is_record() const { return !json.empty(); }
};

/// Rows are of one series when kind, dataset and key are the same; "the last one" is asked of a series.
bool OfOneSeries(const RecordRow& one, const RecordRow& other);

RecordRow RowOf(const ItemEvent& event, const DatasetState& state);
RecordRow RowOf(const std::wstring& dataset_id, const DatasetState& state);
RecordRow RowOf(const DatasetContext& context, const std::wstring& device_key);
RecordRow RowOf(const DeviceContext& context);

}  // namespace TVK
