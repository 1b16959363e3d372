// The event-data store: every record that the component writes, in one SQLite database.
//
// Durable: when a Log... operation returns 0 the record survives the end of the process and the loss of power. Writers
// that meet are committed together, so that eight of them do not cost eight flushes of the disk.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/log/log.h"
#include "client/records/record_kind.h"
#include "client/records/records.h"
#include "platform/clock.h"

namespace TVK {

namespace utility {
/// How the database's path is found. There is one way: the path that the store was opened with.
enum class EGetDBPathMethod { kDefault = 0 };
}  // namespace utility

/// What the store's operations return besides 0. SQLite's own primary result codes (sqlite.org/rescode.html) come
/// through as they are; they are all below 1000.
enum StoreError : int {
  kStoreNotFound = 1001,  ///< No record answers the question.
  kStoreClosed = 1002,    ///< The store could not be opened.
};

/// The store's file in a data folder.
inline constexpr char kStoreFileName[] = "records.db";

struct StoreLimits {
  /// When the records take more than this many bytes, the oldest item events go. Free space inside the file does not
  /// count.
  std::uint64_t max_bytes = 64ull << 20;
  /// Item events older than this go. 0: no limit.
  std::int64_t max_age_seconds = 90LL * 24 * 3600;
};

struct StoreOptions {
  std::filesystem::path file;
  StoreLimits limits;
  /// How long a writer waits for another process that holds the database, before it returns SQLITE_BUSY (5).
  std::chrono::milliseconds busy_timeout{2000};
};

/// Is told of each record after it was committed, in commit order, on the thread that committed it. Must not block and
/// must not call the store. `json` is the record as client/records/record_json.h writes it.
using RecordListener = std::function<void(RecordKind kind, const std::string& json)>;

/// Any thread may call every operation. "Last" means the one written last.
class EventDataLogging {
 public:
  /// Opens the database, or makes it. A file that is corrupt or no database is renamed to
  /// "NAME.corrupt-YYYYMMDDTHHMMSS", an error is logged, and a new one begun. When that fails too, the object exists
  /// and every operation returns kStoreClosed. `clock` must outlive it.
  EventDataLogging(StoreOptions options, const platform::Clock& clock);
  ~EventDataLogging();
  EventDataLogging(const EventDataLogging&) = delete;
  EventDataLogging& operator=(const EventDataLogging&) = delete;

  bool is_open() const;
  /// Why the constructor could not open the store; empty when it could.
  const std::string& opening_problem() const;

  /// 0 when the record is durable, else the reason; an error is then logged and nothing was written.
  int LogItemEvent(const ItemEvent& event);
  int LogDatasetContext(const DatasetContext& context);
  int LogDeviceContext(const DeviceContext& context);

  /// 0 when found, kStoreNotFound when there is none, else the reason. The output stays untouched unless 0 is returned.
  int GetLastItemEventWithItemId(const std::wstring& dataset_id, const std::wstring& item_id, ItemEvent& event,
                                 utility::EGetDBPathMethod method = {}) const;
  int GetLastDatasetContext(const std::wstring& dataset_id, DatasetContext& context,
                            utility::EGetDBPathMethod method = {}) const;
  int GetLastDeviceContext(DeviceContext& context, utility::EGetDBPathMethod method = {}) const;
  int GetDeviceContext(const std::wstring& device_context_id, DeviceContext& context) const;
  /// The last item event with this item id in any dataset.
  int GetLastItemEventOfAnyDataset(const std::wstring& item_id, ItemEvent& event) const;

  /// The item events of `dataset_id` whose record ids lie in [first_id, end_id), in ascending order of the ids. Record
  /// ids count all item events of the store from 1 in the order of writing and are never used twice.
  int ReadItemEvents(const std::wstring& dataset_id, std::int64_t first_id, std::int64_t end_id,
                     std::vector<ItemEvent>& events) const;

  /// Null: nobody is told. When it returns, the former listener is not being called and will not be.
  void SetRecordListener(RecordListener listener);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace TVK
