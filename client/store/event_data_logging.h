// The event-data store: every record that the component writes, in one SQLite database.
//
// Durable: when a Log... operation returns 0 the record survives the end of the process and the loss of power. Writers
// that meet are committed together, so that eight of them do not cost eight flushes of the disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/log/log.h"
#include "client/records/record_kind.h"
#include "client/store/dataset_state.h"
#include "platform/clock.h"
#include "tvk/records.h"

namespace TVK {

struct Erasure;

namespace utility {
/// How the database's path is found. There is one way: the path that the store was opened with.
enum class EGetDBPathMethod { kDefault = 0 };
}  // namespace utility

/// What the store's operations return besides 0. SQLite's own primary result codes (sqlite.org/rescode.html) come
/// through as they are; they are all below 1000.
enum StoreError : int {
  kStoreNotFound = 1001,        ///< No record answers the question.
  kStoreClosed = 1002,          ///< The store could not be opened.
  kStoreUnknownContext = 1003,  ///< The record names a context that the store neither has nor remembers.
};

/// The store's file in a data folder.
inline constexpr char kStoreFileName[] = "records.db";

/// How many earlier contexts of a dataset are given at most.
inline constexpr std::size_t kMostEarlierContexts = 200;

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
  /// Is told, a line each, on the thread that writes, of a damaged file that was set aside while the store was in use.
  /// May be empty.
  std::function<void(const std::string& line)> remarks = {};
};

/// An item event and what the dataset keeps with it; see LogItemEvent.
struct ItemEventWithState {
  ItemEvent event;
  DatasetState state;
};

/// Is told of each record after it was committed, in commit order, on the thread that committed it. Must not block and
/// must not call the store. What it throws is logged, and it is told of the next record all the same. `json` is the
/// record as client/records/record_json.h writes it.
using RecordListener = std::function<void(RecordKind kind, const std::string& json)>;

/// Any thread may call every operation. "Last" means the one written last.
///
/// Contexts. A dataset describes one thing or several devices of a kind; its contexts are kept by dataset and device
/// key, a text that tells the dataset's devices apart (a battery's id, a hashed serial number), stands in no record and
/// is empty for a dataset that describes one thing.
/// - No record stands in the store with the id of a context that the store lacks: one that names an unknown context is
///   refused with kStoreUnknownContext, which is logged once for each id. An empty id names none.
/// - A context that could not be written (disk full, busy, closed) is remembered as long as the process runs: it is
///   written in one transaction with, and ahead of, the next record that can be. In the meantime the questions below
///   answer with it, and whoever was told that writing it failed goes on with its id. Until two newer ones of its
///   series followed, that is; what is longer than a record may be, or names an unknown context itself, is not
///   remembered.
/// - Retention leaves alone the last context of each dataset's device, the last device context, what a kept record
///   names, and what this process wrote or was given by one of the questions below, until it wrote two newer ones of
///   the same dataset and device. Nobody has to hold or release anything.
/// - A store that is begun anew while the process runs is given all of the latter.
class EventDataLogging {
 public:
  /// Opens the database, or makes it. Damage that two openings, one after the other, find in a file that can be read to
  /// its end has the file renamed to "NAME.corrupt-YYYYMMDDTHHMMSS", an error logged, and a new one begun. What passes
  /// (a read that failed, no memory, too many open files) is tried three times. A database of another program or of a
  /// newer version is left as it is. When there is no way to open a file, the object is closed: every operation returns
  /// kStoreClosed, and each record to be written tries again. `clock` must outlive the object.
  EventDataLogging(StoreOptions options, const platform::Clock& clock);
  ~EventDataLogging();
  EventDataLogging(const EventDataLogging&) = delete;
  EventDataLogging& operator=(const EventDataLogging&) = delete;

  bool is_open() const;
  /// What a person should know of the constructor's opening: why it failed or, when it did not, that a damaged file was
  /// set aside or that the file had been cut to nothing. Empty in most cases.
  const std::string& opening_problem() const;

  /// How many records the object could not take.
  std::uint64_t refused() const;
  /// Whether it could not take the newest one, or another one in the last hour (time asleep counts).
  bool failing() const;

  /// 0 when the record is durable, else the reason; an error is then logged and nothing was written. A passing failure
  /// was tried twice.
  /// `state` is written in the same transaction as the event: what the event's dataset kept under this key is replaced.
  int LogItemEvent(const ItemEvent& event, const DatasetState& state = {});
  /// Several, in this order, in one transaction: all of them or none, which costs one flush of the disk. Returns as
  /// LogItemEvent; 0 also for none at all.
  int LogItemEvents(const std::vector<ItemEventWithState>& events);
  /// Keeps the dataset's state without a record. Returns as LogItemEvent.
  int KeepState(const std::wstring& dataset_id, const DatasetState& state);
  int LogDatasetContext(const DatasetContext& context, const std::wstring& device_key = {});
  int LogDeviceContext(const DeviceContext& context);
  /// Takes a device context into use that is not to be written for its own sake: it goes ahead of the next record, as
  /// one does that could not be written.
  void RememberDeviceContext(const DeviceContext& context);

  /// 0 when found, kStoreNotFound when there is none, else the reason. The output stays untouched unless 0 is returned.
  int GetLastItemEventWithItemId(const std::wstring& dataset_id, const std::wstring& item_id, ItemEvent& event,
                                 utility::EGetDBPathMethod method = {}) const;
  /// The newest of the dataset, whichever of its devices it describes.
  int GetLastDatasetContext(const std::wstring& dataset_id, DatasetContext& context,
                            utility::EGetDBPathMethod method = {}) const;
  int GetLastDatasetContextOfDevice(const std::wstring& dataset_id, const std::wstring& device_key,
                                    DatasetContext& context) const;
  int GetLastDeviceContext(DeviceContext& context, utility::EGetDBPathMethod method = {}) const;
  int GetDeviceContext(const std::wstring& device_context_id, DeviceContext& context) const;
  /// The last item event with this item id in any dataset.
  int GetLastItemEventOfAnyDataset(const std::wstring& item_id, ItemEvent& event) const;

  /// What the dataset keeps under `key`; a store that was begun anew keeps nothing.
  int GetState(const std::wstring& dataset_id, const std::wstring& key, std::wstring& value) const;

  /// The earlier contexts of the dataset for reuse, newest first, at most kMostEarlierContexts: of all its devices, or
  /// of the one with `device_key`. 0, with an empty list when there are none, else the reason and `contexts` untouched.
  /// Contexts that are not readable are logged and passed over.
  int GetEarlierDatasetContexts(const std::wstring& dataset_id, std::vector<DatasetContext>& contexts,
                                const std::optional<std::wstring>& device_key = std::nullopt) const;

  /// The item events of `dataset_id` whose record ids lie in [first_id, end_id), in ascending order of the ids. Record
  /// ids count all item events of the store from 1 in the order of writing and are never used twice.
  int ReadItemEvents(const std::wstring& dataset_id, std::int64_t first_id, std::int64_t end_id,
                     std::vector<ItemEvent>& events) const;

  /// Where the last record stands, see ReadLastSequence (client/store/erasure.h); what is written after the call
  /// stands behind it. Returns as that does, or kStoreClosed.
  int GetLastSequence(std::int64_t& sequence);

  /// Deletes records for good, see EraseRecords (client/store/erasure.h), while nobody writes; `count` receives how
  /// many. A context that the process uses is written again ahead of the next record that names it. Returns as that
  /// does, or kStoreClosed; a failure is logged.
  int Erase(const Erasure& erasure, std::uint64_t& count);

  /// Null: nobody is told. When it returns, the former listener is not being called and will not be.
  void SetRecordListener(RecordListener listener);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace TVK
