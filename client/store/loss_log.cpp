#include "client/store/loss_log.h"

#include "client/store/event_data_logging.h"
#include "client/store/sqlite_database.h"
#include "client/text/string.h"

namespace TVK {
namespace {

// Ids are told of again when there were so many of them.
constexpr std::size_t kMostTold = 256;

}  // namespace

std::wstring StoreErrorText(int code) {
  if (code == kStoreClosed) return L"the store is closed";
  if (code == kStoreUnknownContext) return L"it names a context that the store does not have";
  return String::UTF8ToUTF16(sqlite3_errstr(code));
}

bool MayBeWrittenLater(int result) {
  return result != SQLITE_TOOBIG && result != kStoreUnknownContext;
}

void LossLog::LogOne(const QueuedRecord& record) const {
  const bool waits = record.row.kind != RecordKind::kItem && MayBeWrittenLater(record.result);
  log_.e(L"%s: a record of dataset %s %s, error %d (%s)", L"EventDataLogging::Write", record.dataset_name,
         waits ? L"waits for the next one that can be written" : L"is lost", record.result,
         record.problem.empty() ? StoreErrorText(record.result) : String::UTF8ToUTF16(record.problem));
}

void LossLog::LogRefusal(const QueuedRecord& record) {
  const std::string ids = record.row.dataset_context_id + ' ' + record.row.device_context_id;
  if (told_.contains(ids)) return;
  if (told_.size() == kMostTold) told_.clear();
  told_.insert(ids);
  log_.e(
      L"%s: a record of dataset %s is refused, and so are others like it: it names the dataset context \"%s\" and "
      L"the device context \"%s\", of which the store has not both",
      L"EventDataLogging::Write", record.dataset_name, String::UTF8ToUTF16(record.row.dataset_context_id),
      String::UTF8ToUTF16(record.row.device_context_id));
}

void LossLog::Report(std::span<QueuedRecord* const> records) {
  bool written = false;
  for (const QueuedRecord* record : records) {
    if (record->result == 0) {
      written = true;
    } else if (record->result == kStoreUnknownContext) {
      LogRefusal(*record);
    } else {
      LogOne(*record);
      if (record->row.kind == RecordKind::kItem || !MayBeWrittenLater(record->result)) lost_ += 1 + record->more.size();
    }
  }
  if (!written || lost_ == 0) return;
  log_.i(L"%s: records are written again, lost before: %d", L"EventDataLogging::Write", lost_);
  lost_ = 0;
}

}  // namespace TVK
