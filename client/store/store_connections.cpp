#include "client/store/store_connections.h"

#include "client/log/guarded_thread.h"
#include "client/text/path_text.h"
#include "client/text/string.h"

namespace TVK {
namespace {

// How often an opening is tried that something passing may have stopped, at once one after the other: longer troubles
// are met again with the next commit.
constexpr int kTries = 3;

}  // namespace

StoreFileOpening StoreConnections::OpenOnce() {
  auto writing = std::make_unique<WritingSide>(options_.limits);
  auto reading = std::make_unique<ReadingSide>();
  if (std::string problem = lock_.Take(options_.file); !problem.empty()) {
    return {StoreFileState::kUnavailable, std::move(problem)};
  }
  StoreFileOpening opening = OpenStoreForWriting(options_.file, options_.busy_timeout, writing->database);
  if (opening.state != StoreFileState::kReady) return opening;
  int code = writing->writer.Prepare();
  if (code == SQLITE_OK) code = writing->retention.Prepare();
  if (code != SQLITE_OK) return FailedOpening(code, writing->database);
  code = OpenStoreForQueries(options_.file, options_.busy_timeout, reading->database);
  if (code == SQLITE_OK) code = reading->queries.Prepare();
  if (code != SQLITE_OK) return FailedOpening(code, reading->database);
  writing_ = std::move(writing);
  {
    const std::lock_guard lock(reading_mutex_);
    reading_ = std::move(reading);
  }
  open_ = true;
  return opening;
}

StoreFileOpening StoreConnections::OpenWithPatience() {
  StoreFileOpening opening;
  for (int tries = kTries; tries > 0; --tries) {
    const bool was_damaged = opening.state == StoreFileState::kDamaged;
    opening = OpenOnce();
    if (opening.state == StoreFileState::kReady || opening.state == StoreFileState::kForeign ||
        opening.state == StoreFileState::kNewer) {
      return opening;
    }
    if (opening.state == StoreFileState::kDamaged && was_damaged) return opening;
    if (opening.code == SQLITE_BUSY) return opening;  // that was waited for
  }
  opening.state = StoreFileState::kUnavailable;  // damage that no second opening saw is none
  return opening;
}

std::string StoreConnections::Open() {
  StoreFileOpening opening = OpenWithPatience();
  std::string remark;
  if (opening.state == StoreFileState::kDamaged) {
    remark = SetFileAside(opening.problem);
    if (!remark.empty()) opening = OpenWithPatience();
  }
  LogOnce(opening);
  if (opening.state != StoreFileState::kReady || remark.empty()) return opening.problem;
  return remark;
}

void StoreConnections::LogOnce(const StoreFileOpening& opening) {
  const bool ready = opening.state == StoreFileState::kReady;
  if (!opening.problem.empty() && opening.problem != last_log_problem_) {
    log_.e(L"%s: %s%s: %s", L"EventDataLogging::Open", WidePath(options_.file), ready ? L"" : L" cannot be used",
           String::UTF8ToUTF16(opening.problem));
  }
  last_log_problem_ = ready ? std::string() : opening.problem;
}

void StoreConnections::Close() {
  open_ = false;
  writing_.reset();
  const std::lock_guard lock(reading_mutex_);
  reading_.reset();
}

// What a flush kept back lies in the log of writes with its end mark. As long as a connection is open nobody takes it
// for written, and the next commit overwrites it; who opens the store after all were closed reads the log from its
// begin.
bool StoreConnections::Renew() {
  const StoreFileOpening opening = OpenWithPatience();
  LogOnce(opening);
  if (opening.state == StoreFileState::kReady) {
    failure_suspected_ = false;
    return true;
  }
  if (opening.state == StoreFileState::kDamaged) Close();
  return false;
}

bool StoreConnections::Restore() {
  if (writing_ && writing_->database.FileHasMoved()) {
    log_.e(L"%s: %s was removed or replaced; the place is opened anew", L"EventDataLogging::Mend",
           WidePath(options_.file));
    // A file that was moved away keeps its records, and another one in its place does not get them.
    static_cast<void>(writing_->database.Execute("PRAGMA wal_checkpoint(TRUNCATE)"));
    Close();
  } else if (writing_ && damage_suspected_) {
    log_.e(L"%s: %s could not be read as it should; it is opened anew and looked through", L"EventDataLogging::Mend",
           WidePath(options_.file));
    Close();
  } else if (writing_ && failure_suspected_ && Renew()) {
    return true;
  }
  damage_suspected_ = false;
  failure_suspected_ = false;
  if (writing_) return false;
  const std::string remark = Open();
  if (writing_ == nullptr) return false;
  if (!remark.empty() && options_.remarks) {
    CallLogged(log_, L"EventDataLogging: a listener of remarks", [&] { options_.remarks(remark); });
  }
  return true;
}

// Moves the damaged file out of the way. No connection is open. Empty when it could not be moved, else what happened.
std::string StoreConnections::SetFileAside(std::string damage) {
  std::filesystem::path new_name;
  if (const std::string problem = SetAside(options_.file, clock_, new_name); !problem.empty()) {
    log_.e(L"%s: %s is damaged and cannot be set aside: %s", L"EventDataLogging::SetFileAside", WidePath(options_.file),
           String::UTF8ToUTF16(problem));
    return {};
  }
  const std::wstring name = WidePath(new_name);
  log_.e(L"%s: the store was damaged (%s); it is now %s and a new one begins", L"EventDataLogging::SetFileAside",
         String::UTF8ToUTF16(damage), name);
  return "the store was damaged (" + damage + "); it is now " + String::UTF16ToUTF8(name) + " and a new one begins";
}

}  // namespace TVK
