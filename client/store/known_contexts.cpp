#include "client/store/known_contexts.h"

namespace TVK {

void KnownContexts::NoteWritten(const QueuedRecord& record) {
  if (record.kind == RecordKind::kItem) return;
  const std::lock_guard lock(mutex_);
  json_[{record.kind, record.dataset_id}] = record.json;
}

void KnownContexts::NoteRead(RecordKind kind, const std::string& dataset_id, std::string json) {
  const std::lock_guard lock(mutex_);
  json_.emplace(std::pair(kind, dataset_id), std::move(json));
}

std::vector<QueuedRecord> KnownContexts::Records() const {
  const std::lock_guard lock(mutex_);
  std::vector<QueuedRecord> records;
  records.reserve(json_.size());
  for (const auto& [key, json] : json_)
    records.emplace_back(key.first, json, L"context").dataset_id = key.second;
  return records;
}

}  // namespace TVK
