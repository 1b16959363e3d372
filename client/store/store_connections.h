// The store's two connections, and what becomes of them when the file fails: opened with patience, looked at anew when
// something seemed wrong, set aside only when it is.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "client/log/log.h"
#include "client/store/event_data_logging.h"
#include "client/store/record_writer.h"
#include "client/store/retention.h"
#include "client/store/sqlite_database.h"
#include "client/store/store_file.h"
#include "client/store/store_queries.h"
#include "client/store/writer_lock.h"

namespace TVK {

/// Ask and Suspect may be called by any thread, the others by the one that writes at the moment.
class StoreConnections {
 public:
  /// The connection that writes.
  struct WritingSide {
    explicit WritingSide(const StoreLimits& limits) : retention(database, limits) {}
    Database database;
    RecordWriter writer{database};
    Retention retention;
  };

  /// Everything must outlive the object.
  StoreConnections(const StoreOptions& options, const platform::Clock& clock, const Log& log)
      : options_(options), clock_(clock), log_(log) {}

  /// Opens the file: a new one in the place of a damaged one. Damage counts when two openings, one after the other,
  /// find it. Returns what a person should know: why it is not open, or what was strange; empty in most cases. Whatever
  /// was wrong is logged.
  std::string Open();

  /// Before a commit: opens the file again when it was suspected, is no longer where readers look for it, or could not
  /// be opened the last time. True when it was opened, perhaps another one.
  bool Restore();

  /// Tells that something failed as it does where `code` is damage, or what passes. The next Restore finds out.
  void Suspect(int code) { (IsCorruption(code) ? damage_suspected_ : failure_suspected_) = true; }

  bool is_open() const { return open_; }
  /// Null while it is closed.
  WritingSide* writing() const { return writing_.get(); }

  /// Asks the connection that reads, which does not wait for a flush of the disk. `question` may be asked twice: a read
  /// that failed is tried again. kStoreClosed when there is none.
  template <typename Question>
  int Ask(const Question& question) {
    const std::lock_guard lock(reading_mutex_);
    if (!reading_) return kStoreClosed;
    int code = question(reading_->queries);
    if (IsCorruption(code) || MayPass(code)) code = question(reading_->queries);
    if (IsCorruption(code) || MayPass(code)) Suspect(code);
    return code;
  }

 private:
  struct ReadingSide {
    Database database;
    StoreQueries queries{database};
  };

  /// What is open already stays until the new connections are ready, and where they do not become so.
  StoreFileOpening OpenOnce();
  StoreFileOpening OpenWithPatience();
  void Close();
  /// New connections in the place of those that failed; false where there are none.
  bool Renew();
  std::string SetFileAside(std::string damage);
  void LogOnce(const StoreFileOpening& opening);

  const StoreOptions& options_;
  const platform::Clock& clock_;
  const Log& log_;
  std::atomic<bool> open_ = false;
  std::atomic<bool> damage_suspected_ = false;
  std::atomic<bool> failure_suspected_ = false;
  WriterLock lock_;  ///< Ahead of the database, so that it is given back after that was closed.
  std::unique_ptr<WritingSide> writing_;
  std::string last_log_problem_;  ///< Why the last opening failed; a line for each commit would say no more.

  std::mutex reading_mutex_;  ///< Guards reading_.
  std::unique_ptr<ReadingSide> reading_;
};

}  // namespace TVK
