#include "testing/record_collector.h"

#include "client/records/record_json.h"

RecordCollector::RecordCollector(TVK::EventDataLogging& store) : store_(store) {
  store.SetRecordListener([this](TVK::RecordKind kind, const std::string& json) { Collect(kind, json); });
}

void RecordCollector::Collect(TVK::RecordKind kind, const std::string& json) {
  const std::lock_guard lock(mutex_);
  switch (kind) {
    case TVK::RecordKind::kItem:
      items_.push_back(TVK::ItemEventFromJson(json).value());
      break;
    case TVK::RecordKind::kDataset:
      dataset_contexts_.push_back(TVK::DatasetContextFromJson(json).value());
      break;
    case TVK::RecordKind::kDevice:
      device_contexts_.push_back(TVK::DeviceContextFromJson(json).value());
      break;
  }
}

std::vector<ItemEvent> RecordCollector::Items(const std::wstring& item_name) const {
  std::vector<ItemEvent> items = Items();
  std::erase_if(items, [&](const ItemEvent& item) { return item.item_name() != item_name; });
  return items;
}
