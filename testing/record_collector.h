// What a store takes while a test looks.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "client/store/event_data_logging.h"

/// Collects the records of a store in the order of writing, from its making to its end. Any thread.
class RecordCollector {
 public:
  /// `store` must outlive the object, and has no other listener.
  explicit RecordCollector(TVK::EventDataLogging& store);
  ~RecordCollector() { store_.SetRecordListener(nullptr); }
  RecordCollector(const RecordCollector&) = delete;
  RecordCollector& operator=(const RecordCollector&) = delete;

  std::vector<ItemEvent> Items() const { return Copy(items_); }
  /// The item events of this name.
  std::vector<ItemEvent> Items(const std::wstring& item_name) const;
  std::vector<DatasetContext> DatasetContexts() const { return Copy(dataset_contexts_); }
  std::vector<DeviceContext> DeviceContexts() const { return Copy(device_contexts_); }

 private:
  void Collect(TVK::RecordKind kind, const std::string& json);
  template <typename Record>
  std::vector<Record> Copy(const std::vector<Record>& records) const {
    const std::lock_guard lock(mutex_);
    return records;
  }

  TVK::EventDataLogging& store_;
  mutable std::mutex mutex_;  ///< Guards what follows.
  std::vector<ItemEvent> items_;
  std::vector<DatasetContext> dataset_contexts_;
  std::vector<DeviceContext> device_contexts_;
};
