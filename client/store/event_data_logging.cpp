#include "client/store/event_data_logging.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <new>

#include "client/log/guarded_thread.h"
#include "client/log/service_logs.h"
#include "client/records/record_json.h"
#include "client/store/commit_queue.h"
#include "client/store/erasure.h"
#include "client/store/known_contexts.h"
#include "client/store/loss_log.h"
#include "client/store/record_row.h"
#include "client/store/store_connections.h"
#include "client/store/store_reading.h"
#include "client/text/string.h"

namespace TVK {

class EventDataLogging::Impl {
 public:
  Impl(StoreOptions options, const platform::Clock& clock) : options_(std::move(options)), clock_(clock) {
    utility::InitLog(log_, ServiceLog(L"EventDataLogging.log"), 4);
    opening_problem_ = connections_.Open();
    KeepWithinLimits(0);
  }

  bool is_open() const { return connections_.is_open(); }
  const std::string& opening_problem() const { return opening_problem_; }

  void Remember(const RecordRow& context) { contexts_.NoteWritten(context, 0); }

  std::uint64_t refused() const { return refused_; }
  bool failing() const {
    if (refused_ == 0) return false;
    const std::chrono::nanoseconds since = clock_.Elapsed().time_since_epoch() - std::chrono::nanoseconds(refused_at_);
    return newest_refused_ || since <= std::chrono::hours(1);
  }

  int Write(RecordRow row, std::wstring_view dataset_name) {
    QueuedRecord record(std::move(row), dataset_name);
    return Write(record);
  }

  int Write(QueuedRecord& record) {
    const auto fits = [](const RecordRow& row) { return row.json.size() <= kLongestRecordJson; };
    if (fits(record.row) && std::ranges::all_of(record.more, fits)) {
      queue_.Write(record);
    } else {
      record.result = SQLITE_TOOBIG;
      losses_.LogOne(record);
    }
    newest_refused_ = record.result != 0;
    if (record.result != 0) {
      refused_at_ = std::chrono::nanoseconds(clock_.Elapsed().time_since_epoch()).count();
      refused_ += 1 + record.more.size();
    }
    return record.result;
  }

  int Erase(const Erasure& erasure, std::uint64_t& count) {
    int code = SQLITE_NOMEM;
    queue_.Do([&] { CallLogged(log_, L"EventDataLogging::Erase", [&] { code = EraseNow(erasure, count); }); });
    return code;
  }

  int GetLastSequence(std::int64_t& sequence) {
    int code = SQLITE_NOMEM;
    queue_.Do([&] {
      CallLogged(log_, L"EventDataLogging::GetLastSequence", [&] {
        RestoreConnections();
        code = connections_.writing() == nullptr ? int{kStoreClosed}
                                                 : ReadLastSequence(connections_.writing()->database, sequence);
      });
    });
    return code;
  }

  StoreReading& reading() { return reading_; }

  void SetRecordListener(RecordListener listener) {
    const std::lock_guard lock(listener_mutex_);
    listener_ = std::move(listener);
  }

 private:
  // Runs on the thread that leads the commit.
  void Commit(std::span<QueuedRecord* const> records) {
    try {
      RestoreConnections();
      WriteRecords(records);
      TryAgain(records);
      std::size_t written = 0;
      for (const QueuedRecord* record : records)
        written += 1 + record->more.size();
      KeepWithinLimits(written);
      for (const QueuedRecord* record : records) {
        const bool waits = record->result != 0 && MayBeWrittenLater(record->result);
        if (waits && record->row.kind != RecordKind::kItem) contexts_.NoteWritten(record->row, 0);
      }
    } catch (const std::bad_alloc&) {
      FailUnwritten(records, SQLITE_NOMEM);
    } catch (...) {
      FailUnwritten(records, SQLITE_ERROR);
    }
    losses_.Report(records);
  }

  void RestoreConnections() {
    if (!connections_.Restore()) return;
    contexts_.Locate(Finder());
    KeepWithinLimits(0);
  }

  KnownContexts::Find Finder() {
    return [this](RecordKind kind, const std::string& context_id) {
      return connections_.writing()->writer.FindContext(kind, context_id);
    };
  }

  // Runs where a commit does.
  int EraseNow(const Erasure& erasure, std::uint64_t& count) {
    RestoreConnections();
    if (connections_.writing() == nullptr) return kStoreClosed;
    const auto no_new_use = reading_.HoldBack();
    const int code = EraseRecords(connections_.writing()->database, erasure, count);
    contexts_.NoteErased(Finder(), erasure);
    if (code != SQLITE_OK) {
      log_.e(L"%s: not complete, error %d (%s)", L"EventDataLogging::Erase", code, StoreErrorText(code));
    }
    return code;
  }

  // Once more what something passing may have stopped, in the file as a fresh opening finds it when it seems damaged.
  void TryAgain(std::span<QueuedRecord* const> records) {
    std::vector<QueuedRecord*> again;
    bool damaged = false;
    for (QueuedRecord* record : records) {
      damaged = damaged || IsCorruption(record->result);
      if (IsCorruption(record->result) || MayPass(record->result)) again.push_back(record);
    }
    if (again.empty()) return;
    if (damaged) {
      connections_.Suspect(SQLITE_CORRUPT);
      RestoreConnections();
    }
    WriteRecords(again);
    // A connection that fails again may be what is wrong.
    const auto failed = std::ranges::find_if(again, [](const QueuedRecord* record) { return MayPass(record->result); });
    if (failed != again.end()) connections_.Suspect((*failed)->result);
  }

  // The contexts that wait go ahead, since the records may name them.
  void WriteRecords(std::span<QueuedRecord* const> records) {
    StoreConnections::WritingSide* const writing = connections_.writing();
    if (writing == nullptr) {
      for (QueuedRecord* record : records) {
        record->result = kStoreClosed;
        record->problem.clear();
      }
      return;
    }
    std::vector<QueuedRecord> waiting;
    for (RecordRow& row : contexts_.Unwritten(ContextsNamedBy(records)))
      waiting.emplace_back(std::move(row), L"context");
    std::vector<QueuedRecord*> contexts;
    for (QueuedRecord& context : waiting)
      contexts.push_back(&context);
    writing->writer.Write(contexts, records, clock_.NowSeconds());
    for (const QueuedRecord* context : contexts) {
      // It was not known when it was remembered that it names what nobody has.
      if (context->result == kStoreUnknownContext) contexts_.Forget(context->row.kind, context->row.context_id);
    }
    NoteAndTell(contexts);
    NoteAndTell(records);
  }

  void NoteAndTell(std::span<QueuedRecord* const> records) {
    for (const QueuedRecord* record : records) {
      if (record->result != 0 || record->row.kind == RecordKind::kItem) continue;
      contexts_.NoteWritten(record->row, record->sequence);
      static_cast<void>(reading_.KnowDeviceContextOf(record->row));
    }
    const std::lock_guard lock(listener_mutex_);
    if (!listener_) return;
    for (const QueuedRecord* record : records) {
      if (record->result != 0 || !record->row.is_record()) continue;
      Tell(record->row);
      for (const RecordRow& row : record->more)
        Tell(row);
    }
  }

  // What the listener throws is its own affair: the record is on the disk, its writer waits, and the next record is
  // told all the same. listener_mutex_ is held.
  void Tell(const RecordRow& row) {
    CallLogged(log_, L"a listener of records", [&] { listener_(row.kind, row.json); });
  }

  static void FailUnwritten(std::span<QueuedRecord* const> records, int code) {
    for (QueuedRecord* record : records) {
      if (record->result == QueuedRecord::kNotWritten) record->result = code;
    }
  }

  void KeepWithinLimits(std::size_t written) {
    if (connections_.writing() == nullptr) return;
    Retention& retention = connections_.writing()->retention;
    const bool knew = retention.stays_too_large();
    const auto no_new_use = reading_.HoldBack();
    if (const int code = retention.AfterCommit(written, clock_.NowSeconds(), contexts_); code != SQLITE_OK) {
      log_.e(L"%s: old records could not be removed, error %d (%s)", L"EventDataLogging::Retention", code,
             StoreErrorText(code));
      if (IsCorruption(code)) connections_.Suspect(code);
    }
    if (knew || !retention.stays_too_large()) return;
    log_.e(L"%s: the store stays larger than its limit of %d bytes: what is left in it may not go",
           L"EventDataLogging::Retention", options_.limits.max_bytes);
  }

  const StoreOptions options_;
  const platform::Clock& clock_;
  Log log_;
  std::string opening_problem_;  ///< Constant once constructed.
  KnownContexts contexts_;
  StoreConnections connections_{options_, clock_, log_};
  StoreReading reading_{connections_, contexts_, log_};
  LossLog losses_{log_};

  std::mutex listener_mutex_;  ///< Guards listener_ and is held while it is called.
  RecordListener listener_;

  std::atomic<std::uint64_t> refused_ = 0;
  std::atomic<std::int64_t> refused_at_ = 0;  ///< The last one; nanoseconds of the clock's Elapsed.
  std::atomic<bool> newest_refused_ = false;

  CommitQueue queue_{[this](std::span<QueuedRecord* const> records) { Commit(records); }};
};

EventDataLogging::EventDataLogging(StoreOptions options, const platform::Clock& clock)
    : impl_(std::make_unique<Impl>(std::move(options), clock)) {}
EventDataLogging::~EventDataLogging() = default;

std::uint64_t EventDataLogging::refused() const {
  return impl_->refused();
}

bool EventDataLogging::failing() const {
  return impl_->failing();
}

bool EventDataLogging::is_open() const {
  return impl_->is_open();
}

const std::string& EventDataLogging::opening_problem() const {
  return impl_->opening_problem();
}

int EventDataLogging::LogItemEvent(const ItemEvent& event, const DatasetState& state) {
  return impl_->Write(RowOf(event, state), event.dataset_name());
}

int EventDataLogging::LogItemEvents(const std::vector<ItemEventWithState>& events) {
  if (events.empty()) return 0;
  const auto row_of = [](const ItemEventWithState& each) { return RowOf(each.event, each.state); };
  QueuedRecord record(row_of(events.front()), events.front().event.dataset_name());
  for (std::size_t i = 1; i < events.size(); ++i)
    record.more.push_back(row_of(events[i]));
  return impl_->Write(record);
}

int EventDataLogging::KeepState(const std::wstring& dataset_id, const DatasetState& state) {
  return impl_->Write(RowOf(dataset_id, state), L"state");
}

int EventDataLogging::LogDatasetContext(const DatasetContext& context, const std::wstring& device_key) {
  return impl_->Write(RowOf(context, device_key), context.dataset_name());
}

int EventDataLogging::LogDeviceContext(const DeviceContext& context) {
  return impl_->Write(RowOf(context), L"device context");
}

void EventDataLogging::RememberDeviceContext(const DeviceContext& context) {
  impl_->Remember(RowOf(context));
}

int EventDataLogging::GetLastItemEventWithItemId(const std::wstring& dataset_id, const std::wstring& item_id,
                                                 ItemEvent& event, utility::EGetDBPathMethod /*method*/) const {
  return impl_->reading().LastItem(dataset_id, item_id, event);
}

int EventDataLogging::GetLastDatasetContext(const std::wstring& dataset_id, DatasetContext& context,
                                            utility::EGetDBPathMethod /*method*/) const {
  return impl_->reading().LastContext(dataset_id, std::nullopt, context);
}

int EventDataLogging::GetLastDatasetContextOfDevice(const std::wstring& dataset_id, const std::wstring& device_key,
                                                    DatasetContext& context) const {
  return impl_->reading().LastContext(dataset_id, device_key, context);
}

int EventDataLogging::GetLastDeviceContext(DeviceContext& context, utility::EGetDBPathMethod /*method*/) const {
  return impl_->reading().LastContext(context);
}

int EventDataLogging::GetDeviceContext(const std::wstring& device_context_id, DeviceContext& context) const {
  return impl_->reading().ContextById(device_context_id, context);
}

int EventDataLogging::GetEarlierDatasetContexts(const std::wstring& dataset_id, std::vector<DatasetContext>& contexts,
                                                const std::optional<std::wstring>& device_key) const {
  return impl_->reading().EarlierContexts(dataset_id, device_key, contexts);
}

int EventDataLogging::GetState(const std::wstring& dataset_id, const std::wstring& key, std::wstring& value) const {
  return impl_->reading().State(dataset_id, key, value);
}

int EventDataLogging::GetLastItemEventOfAnyDataset(const std::wstring& item_id, ItemEvent& event) const {
  return impl_->reading().LastItemOfAnyDataset(item_id, event);
}

int EventDataLogging::ReadItemEvents(const std::wstring& dataset_id, std::int64_t first_id, std::int64_t end_id,
                                     std::vector<ItemEvent>& events) const {
  return impl_->reading().Items(dataset_id, first_id, end_id, events);
}

int EventDataLogging::GetLastSequence(std::int64_t& sequence) {
  return impl_->GetLastSequence(sequence);
}

int EventDataLogging::Erase(const Erasure& erasure, std::uint64_t& count) {
  return impl_->Erase(erasure, count);
}

void EventDataLogging::SetRecordListener(RecordListener listener) {
  impl_->SetRecordListener(std::move(listener));
}

}  // namespace TVK
