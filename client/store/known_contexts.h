// The contexts that records of this run refer to, so that a store that is begun anew can be given them.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "client/store/commit_queue.h"

namespace TVK {

/// Remembers the last device context and the last context of each dataset, as JSON. Any thread.
class KnownContexts {
 public:
  /// To be called with each record that was written; item events are passed over.
  void NoteWritten(const QueuedRecord& record);
  /// To be called with the last context that the store gave; one that was written in this run is newer and stays.
  void NoteRead(RecordKind kind, const std::string& dataset_id, std::string json);

  /// As records to be written: the device context first, since the others refer to it.
  std::vector<QueuedRecord> Records() const;

 private:
  mutable std::mutex mutex_;  ///< Guards json_.
  /// By kind and dataset id; the device context comes first.
  std::map<std::pair<RecordKind, std::string>, std::string, std::greater<>> json_;
};

}  // namespace TVK
