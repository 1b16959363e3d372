#include "client/store/event_data_logging.h"

#include <atomic>
#include <exception>
#include <mutex>
#include <new>

#include "client/records/record_json.h"
#include "client/store/commit_queue.h"
#include "client/store/known_contexts.h"
#include "client/store/record_writer.h"
#include "client/store/retention.h"
#include "client/store/sqlite_database.h"
#include "client/store/store_file.h"
#include "client/store/store_queries.h"
#include "client/store/writer_lock.h"
#include "client/text/path_text.h"
#include "client/text/string.h"

namespace TVK {
namespace {

std::wstring ErrorText(int code) {
  if (code == kStoreClosed) return L"the store is closed";
  return String::UTF8ToUTF16(sqlite3_errstr(code));
}

// The two connections: a reader on its own one does not wait for a flush of the disk.
struct WritingSide {
  explicit WritingSide(const StoreLimits& limits) : retention(database, limits) {}
  Database database;
  RecordWriter writer{database};
  Retention retention;
};

struct ReadingSide {
  Database database;
  StoreQueries queries{database};
};

}  // namespace

class EventDataLogging::Impl {
 public:
  Impl(StoreOptions options, const platform::Clock& clock) : options_(std::move(options)), clock_(clock) {
    utility::InitLog(log_, L"EventDataLogging.log", 4);
    if (std::string problem; !OpenOrBeginAnew(problem)) opening_problem_ = std::move(problem);
  }

  bool is_open() const { return open_; }
  const std::string& opening_problem() const { return opening_problem_; }

  int Write(QueuedRecord& record) {
    if (record.json.size() <= kLongestRecordJson) return queue_.Write(record);
    record.result = SQLITE_TOOBIG;
    LogLoss(record);
    return record.result;
  }

  // Runs `query` on the reading side and turns the text that it gives into a record.
  template <typename Record, typename Query>
  int Read(Record& record, std::optional<Record> (*from_json)(std::string_view), const Query& query) {
    std::string json;
    if (const int code = Ask([&](StoreQueries& queries) { return query(queries, json); }); code != 0) return code;
    std::optional<Record> read = from_json(json);
    if (!read) {
      log_.e(L"%s: a stored record is not readable", L"EventDataLogging::Read");
      return SQLITE_CORRUPT;
    }
    record = std::move(*read);
    return 0;
  }

  template <typename Context>
  int ReadLastContext(RecordKind kind, const std::string& dataset_id, Context& context,
                      std::optional<Context> (*from_json)(std::string_view)) {
    std::string last;
    const int code = Read(context, from_json, [&](StoreQueries& queries, std::string& json) {
      const int found = queries.Last(kind, dataset_id, {}, json);
      last = json;
      return found;
    });
    if (code == 0) contexts_.NoteRead(kind, dataset_id, std::move(last));
    return code;
  }

  int ReadItems(const std::string& dataset_id, std::int64_t first, std::int64_t end, std::vector<ItemEvent>& events) {
    std::vector<ItemEvent> read;
    const int code = Ask([&](StoreQueries& queries) {
      return queries.Items(dataset_id, first, end, [&](std::int64_t id, std::string_view json) {
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

  void SetRecordListener(RecordListener listener) {
    const std::lock_guard lock(listener_mutex_);
    listener_ = std::move(listener);
  }

 private:
  // Opens both sides. Leaves the store closed, with an error in the log and in `problem`, when the state is not kReady.
  StoreFileState Open(std::string& problem) {
    auto writing = std::make_unique<WritingSide>(options_.limits);
    StoreFileOpening opening{StoreFileState::kUnavailable, lock_.Take(options_.file)};
    if (opening.problem.empty()) {
      opening = OpenStoreForWriting(options_.file, options_.busy_timeout, writing->database);
    }
    auto reading = std::make_unique<ReadingSide>();
    if (opening.state == StoreFileState::kReady) {
      int code = writing->writer.Prepare();
      if (code == SQLITE_OK) code = writing->retention.Prepare();
      if (code == SQLITE_OK) code = OpenStoreForQueries(options_.file, options_.busy_timeout, reading->database);
      if (code == SQLITE_OK) code = reading->queries.Prepare();
      if (code != SQLITE_OK) {
        // The file says that it is ours: tables that are not as they were made are damage, too.
        const bool damaged = IsCorruption(code) || code == SQLITE_ERROR;
        opening = {damaged ? StoreFileState::kDamaged : StoreFileState::kUnavailable, sqlite3_errstr(code)};
      }
    }
    if (opening.state != StoreFileState::kReady) {
      log_.e(L"%s: %s cannot be used: %s", L"EventDataLogging::Open", WidePath(options_.file),
             String::UTF8ToUTF16(opening.problem));
      problem = std::move(opening.problem);
      return opening.state;
    }
    writing_ = std::move(writing);
    {
      const std::lock_guard lock(reading_mutex_);
      reading_ = std::move(reading);
    }
    open_ = true;
    KeepWithinLimits(0);
    return StoreFileState::kReady;
  }

  // Opens the file, a new one in the place of a damaged one.
  bool OpenOrBeginAnew(std::string& problem) {
    StoreFileState state = Open(problem);
    if (state == StoreFileState::kDamaged && SetFileAside()) state = Open(problem);
    return state == StoreFileState::kReady;
  }

  void Close() {
    open_ = false;
    writing_.reset();
    const std::lock_guard lock(reading_mutex_);
    reading_.reset();
  }

  // Before a commit: goes on with another file when this one is damaged or no longer where readers look for it. Tries
  // again with each commit until there is one.
  void Mend() {
    if (damaged_) {
      lost_file_ = true;
      if (!SetFileAside()) return;
      damaged_ = false;
    } else if (writing_ && writing_->database.FileHasMoved()) {
      lost_file_ = true;
      log_.e(L"%s: %s was removed or replaced; the place is opened anew", L"EventDataLogging::Mend",
             WidePath(options_.file));
      // A file that was moved away keeps its records, and another one in its place does not get them.
      static_cast<void>(writing_->database.Execute("PRAGMA wal_checkpoint(TRUNCATE)"));
      Close();
    }
    if (std::string logged; !lost_file_ || !OpenOrBeginAnew(logged)) return;
    lost_file_ = false;
    contexts_due_ = true;
  }

  // Closes both sides and moves the damaged file out of the way.
  bool SetFileAside() {
    Close();
    std::filesystem::path new_name;
    const std::string problem = SetAside(options_.file, clock_, new_name);
    if (!problem.empty()) {
      log_.e(L"%s: %s is damaged and cannot be renamed: %s", L"EventDataLogging::SetFileAside", WidePath(options_.file),
             String::UTF8ToUTF16(problem));
      return false;
    }
    log_.e(L"%s: the store was damaged; it is now %s and a new one begins", L"EventDataLogging::SetFileAside",
           WidePath(new_name));
    return true;
  }

  // Runs on the thread that leads the commit.
  void Commit(std::span<QueuedRecord* const> records) {
    try {
      Mend();
      WriteRecords(records);
      if (writing_ && IsCorruption(FirstError(records))) {
        damaged_ = true;
        Mend();
        std::vector<QueuedRecord*> again;
        for (QueuedRecord* record : records) {
          if (record->result != 0) again.push_back(record);
        }
        if (writing_) WriteRecords(again);
      }
      Tell(records);
      if (writing_) KeepWithinLimits(records.size());
    } catch (const std::bad_alloc&) {
      FailUnwritten(records, SQLITE_NOMEM);
    } catch (const std::exception&) {
      FailUnwritten(records, SQLITE_ERROR);
    }
    ReportLosses(records);
  }

  // The losses themselves, and their number when it is over: on a full disk the lines about them are lost, too.
  void ReportLosses(std::span<QueuedRecord* const> records) {
    bool written = false;
    for (const QueuedRecord* record : records) {
      written = written || record->result == 0;
      if (record->result == 0) continue;
      LogLoss(*record);
      ++lost_records_;
    }
    if (!written || lost_records_ == 0) return;
    log_.i(L"%s: records are written again, lost before: %d", L"EventDataLogging::Write", lost_records_);
    lost_records_ = 0;
  }

  void WriteRecords(std::span<QueuedRecord* const> records) {
    if (!writing_) {
      for (QueuedRecord* record : records)
        record->result = kStoreClosed;
      return;
    }
    if (contexts_due_) {
      WriteWithContexts(records);
    } else {
      writing_->writer.Write(records, clock_.NowSeconds());
    }
    for (const QueuedRecord* record : records) {
      if (record->result == 0) contexts_.NoteWritten(*record);
    }
  }

  // Into a file that was begun in this run: the contexts that the records refer to stand in the former one.
  void WriteWithContexts(std::span<QueuedRecord* const> records) {
    std::vector<QueuedRecord> contexts = contexts_.Records();
    std::vector<QueuedRecord*> all;
    all.reserve(contexts.size() + records.size());
    for (QueuedRecord& context : contexts)
      all.push_back(&context);
    all.insert(all.end(), records.begin(), records.end());
    writing_->writer.Write(all, clock_.NowSeconds());
    const std::span<QueuedRecord* const> written(all.data(), contexts.size());
    contexts_due_ = FirstError(written) != 0;
    Tell(written);
  }

  static int FirstError(std::span<QueuedRecord* const> records) {
    for (const QueuedRecord* record : records) {
      if (record->result != 0) return record->result;
    }
    return 0;
  }

  static void FailUnwritten(std::span<QueuedRecord* const> records, int code) {
    for (QueuedRecord* record : records) {
      if (record->result == QueuedRecord::kNotWritten) record->result = code;
    }
  }

  void Tell(std::span<QueuedRecord* const> records) {
    const std::lock_guard lock(listener_mutex_);
    if (!listener_) return;
    for (const QueuedRecord* record : records) {
      if (record->result == 0) listener_(record->kind, record->json);
    }
  }

  void LogLoss(const QueuedRecord& record) const {
    log_.e(L"%s: a record of dataset %s is lost, error %d (%s)", L"EventDataLogging::Write", record.dataset_name,
           record.result, ErrorText(record.result));
  }

  void KeepWithinLimits(std::size_t written) {
    Retention& retention = writing_->retention;
    const bool knew = retention.stays_too_large();
    if (const int code = retention.AfterCommit(written, clock_.NowSeconds()); code != SQLITE_OK) {
      log_.e(L"%s: old records could not be removed, error %d (%s)", L"EventDataLogging::Retention", code,
             ErrorText(code));
    }
    if (knew || !retention.stays_too_large()) return;
    log_.e(L"%s: the store stays larger than its limit of %d bytes: what is left in it may not go",
           L"EventDataLogging::Retention", options_.limits.max_bytes);
  }

  template <typename Question>
  int Ask(const Question& question) {
    const std::lock_guard lock(reading_mutex_);
    if (!reading_) return kStoreClosed;
    const int code = question(reading_->queries);
    if (IsCorruption(code)) damaged_ = true;
    if (code != 0 && code != kStoreNotFound) {
      log_.e(L"%s: reading failed, error %d (%s)", L"EventDataLogging::Read", code, ErrorText(code));
    }
    return code;
  }

  const StoreOptions options_;
  const platform::Clock& clock_;
  Log log_;
  std::atomic<bool> open_ = false;
  std::string opening_problem_;        ///< Constant once constructed.
  std::atomic<bool> damaged_ = false;  ///< A reader met damage: the next commit replaces the file.

  KnownContexts contexts_;

  // What follows belongs to the thread that leads the commit.
  WriterLock lock_;                       ///< Ahead of the database, so that it is given back after that was closed.
  std::unique_ptr<WritingSide> writing_;  ///< Null: closed.
  bool lost_file_ = false;                ///< The file of this run is gone and there is no other one yet.
  std::uint64_t lost_records_ = 0;        ///< Since the last one that was written.
  bool contexts_due_ = false;             ///< The contexts in force are to be written before the next record.

  std::mutex reading_mutex_;  ///< Guards reading_.
  std::unique_ptr<ReadingSide> reading_;

  std::mutex listener_mutex_;  ///< Guards listener_ and is held while it is called.
  RecordListener listener_;

  CommitQueue queue_{[this](std::span<QueuedRecord* const> records) { Commit(records); }};
};

EventDataLogging::EventDataLogging(StoreOptions options, const platform::Clock& clock)
    : impl_(std::make_unique<Impl>(std::move(options), clock)) {}
EventDataLogging::~EventDataLogging() = default;

bool EventDataLogging::is_open() const {
  return impl_->is_open();
}

const std::string& EventDataLogging::opening_problem() const {
  return impl_->opening_problem();
}

int EventDataLogging::LogItemEvent(const ItemEvent& event) {
  QueuedRecord record(RecordKind::kItem, ToJson(event), event.dataset_name());
  record.dataset_id = String::UTF16ToUTF8(event.dataset_id());
  record.item_id = String::UTF16ToUTF8(event.item_id());
  return impl_->Write(record);
}

int EventDataLogging::LogDatasetContext(const DatasetContext& context) {
  QueuedRecord record(RecordKind::kDataset, ToJson(context), context.dataset_name());
  record.dataset_id = String::UTF16ToUTF8(context.dataset_id());
  return impl_->Write(record);
}

int EventDataLogging::LogDeviceContext(const DeviceContext& context) {
  QueuedRecord record(RecordKind::kDevice, ToJson(context), L"device context");
  return impl_->Write(record);
}

int EventDataLogging::GetLastItemEventWithItemId(const std::wstring& dataset_id, const std::wstring& item_id,
                                                 ItemEvent& event, utility::EGetDBPathMethod /*method*/) const {
  return impl_->Read(event, ItemEventFromJson, [&](StoreQueries& queries, std::string& json) {
    return queries.Last(RecordKind::kItem, String::UTF16ToUTF8(dataset_id), String::UTF16ToUTF8(item_id), json);
  });
}

int EventDataLogging::GetLastDatasetContext(const std::wstring& dataset_id, DatasetContext& context,
                                            utility::EGetDBPathMethod /*method*/) const {
  return impl_->ReadLastContext(RecordKind::kDataset, String::UTF16ToUTF8(dataset_id), context, DatasetContextFromJson);
}

int EventDataLogging::GetLastDeviceContext(DeviceContext& context, utility::EGetDBPathMethod /*method*/) const {
  return impl_->ReadLastContext(RecordKind::kDevice, {}, context, DeviceContextFromJson);
}

int EventDataLogging::GetDeviceContext(const std::wstring& device_context_id, DeviceContext& context) const {
  return impl_->Read(context, DeviceContextFromJson, [&](StoreQueries& queries, std::string& json) {
    return queries.DeviceContextById(String::UTF16ToUTF8(device_context_id), json);
  });
}

int EventDataLogging::GetLastItemEventOfAnyDataset(const std::wstring& item_id, ItemEvent& event) const {
  return impl_->Read(event, ItemEventFromJson, [&](StoreQueries& queries, std::string& json) {
    return queries.LastItemOfAnyDataset(String::UTF16ToUTF8(item_id), json);
  });
}

int EventDataLogging::ReadItemEvents(const std::wstring& dataset_id, std::int64_t first_id, std::int64_t end_id,
                                     std::vector<ItemEvent>& events) const {
  return impl_->ReadItems(String::UTF16ToUTF8(dataset_id), first_id, end_id, events);
}

void EventDataLogging::SetRecordListener(RecordListener listener) {
  impl_->SetRecordListener(std::move(listener));
}

}  // namespace TVK
