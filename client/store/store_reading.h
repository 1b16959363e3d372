// What the store answers from its reading side, and from what its writer knows.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/log/log.h"
#include "client/store/known_contexts.h"
#include "client/store/record_row.h"
#include "client/store/store_connections.h"
#include "tvk/records.h"

namespace TVK {

/// Each question is answered with 0, kStoreNotFound or why it cannot be; what is asked for changes with 0 alone. A
/// context that was given is in use from then on. Any thread.
class StoreReading {
 public:
  /// All must outlive the object. What fails is logged in `log`.
  StoreReading(StoreConnections& connections, KnownContexts& contexts, const Log& log)
      : connections_(connections), contexts_(contexts), log_(log) {}
  StoreReading(const StoreReading&) = delete;
  StoreReading& operator=(const StoreReading&) = delete;

  int LastItem(const std::wstring& dataset_id, const std::wstring& item_id, ItemEvent& event);
  int LastItemOfAnyDataset(const std::wstring& item_id, ItemEvent& event);
  /// Those whose ids are from `first` on and before `end`; what is not readable is passed over.
  int Items(const std::wstring& dataset_id, std::int64_t first, std::int64_t end, std::vector<ItemEvent>& events);
  /// Of the device, or of any of them without a key.
  int LastContext(const std::wstring& dataset_id, const std::optional<std::wstring>& device_key,
                  DatasetContext& context);
  int LastContext(DeviceContext& context);
  int ContextById(const std::wstring& device_context_id, DeviceContext& context);
  /// The newest kMostEarlierContexts, newest first; what is not readable is passed over.
  int EarlierContexts(const std::wstring& dataset_id, const std::optional<std::wstring>& device_key,
                      std::vector<DatasetContext>& contexts);
  int State(const std::wstring& dataset_id, const std::wstring& key, std::wstring& value);

  /// Whoever is given a context may write it into a file that is begun anew, and there needs what it names.
  int KnowDeviceContextOf(const RecordRow& row);

  /// While it is held no context is given from the file, so that what is not in use stays so.
  std::unique_lock<std::mutex> HoldBack() { return std::unique_lock(use_mutex_); }

 private:
  template <typename Question>
  int Ask(const Question& question);
  template <typename Record, typename Query>
  int Read(Record& record, std::optional<Record> (*from_json)(std::string_view), const Query& query);
  template <typename Context>
  int ReadLastContext(RecordKind kind, const std::string& dataset_id, const std::optional<std::string>& key,
                      Context& context);
  template <typename Context>
  struct ReadContext;
  template <typename Context>
  int ReadContexts(RecordKind kind, const std::string& dataset_id, const std::optional<std::string>& key,
                   std::size_t at_most, std::vector<ReadContext<Context>>& contexts);
  template <typename Context>
  int Give(const RecordRow& known, Context& context);
  int Unreadable();

  StoreConnections& connections_;
  KnownContexts& contexts_;
  const Log& log_;
  /// Guards that what is in use stays in the file: held while a context is read and noted as in use, and while
  /// retention removes what is not in use.
  std::mutex use_mutex_;
};

}  // namespace TVK
