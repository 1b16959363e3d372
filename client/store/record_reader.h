// Reading the store from outside the service, while the service runs: what `tvkctl records` shows.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/store/event_data_logging.h"
#include "client/store/removed_for_age.h"

namespace TVK {

/// Which records to read. Absent means: no such condition.
struct RecordQuery {
  std::optional<RecordKind> kind = std::nullopt;
  /// Names, ASCII case aside. Contexts have no item and device contexts no dataset; they do not match.
  std::optional<std::wstring> dataset_name = std::nullopt;
  std::optional<std::wstring> item_name = std::nullopt;
  /// Written at or after, and at or before this moment, seconds since 1970.
  std::optional<std::int64_t> since_seconds = std::nullopt;
  std::optional<std::int64_t> until_seconds = std::nullopt;
  /// Only records with a larger sequence number, and none with a larger one than that.
  std::int64_t after_sequence = std::numeric_limits<std::int64_t>::min();
  std::int64_t last_sequence = std::numeric_limits<std::int64_t>::max();
  /// The newest so many.
  std::optional<std::uint64_t> limit = std::nullopt;
  bool newest_first = false;
};

struct StoredRecord {
  std::int64_t sequence = 0;  ///< The order of writing over all kinds; never used twice. Placeholders: below 0.
  RecordKind kind = RecordKind::kItem;
  std::int64_t series = 0;           ///< The same for all records of one kind, dataset and item or device.
  std::int64_t written_seconds = 0;  ///< When the store took it, seconds since 1970.
  std::string json;                  ///< As client/records/record_json.h writes it, unless it was changed from outside.
};

/// How the opening of a store went.
enum class StoreAccess {
  kOpen,
  kMissing,  ///< There is no such file, or it is empty: no service began a store there yet.
  kForeign,  ///< It is no store of ours.
  kNewer,    ///< It is of a newer version of the client.
  kDenied,   ///< This account may not read it.
  kFailed,   ///< It cannot be read now.
};

/// A read-only view of a store. One thread at a time.
class RecordReader {
 public:
  /// Null, with the reason in `problem`, when there is no store that can be read; `access`, when given, says how it
  /// went.
  static std::unique_ptr<RecordReader> Open(const std::filesystem::path& file, std::string& problem,
                                            StoreAccess* access = nullptr);
  ~RecordReader();
  RecordReader(const RecordReader&) = delete;
  RecordReader& operator=(const RecordReader&) = delete;

  /// Takes some records, and says whether to go on.
  using Take = std::function<bool(std::span<const StoredRecord>)>;

  /// Gives the records that answer `query` to `take`, oldest first unless the query says otherwise, some at a time:
  /// while it looks at them the store is not read, so that a reader who is slow holds up no writer. What is written
  /// after the begin is not among them. False with the reason in `problem` when the store cannot be read to the end;
  /// what lies before and behind the damaged place was given then, as far as it could be read.
  bool Read(const RecordQuery& query, const Take& take, std::string& problem) const;

  /// The largest sequence number; 0 in an empty store, the largest number there is where it cannot be read.
  std::int64_t NewestSequence() const;

  /// The largest sequence number that any record had, those that were deleted, too; 0 where it cannot be read.
  std::int64_t LastWrittenSequence() const;

  /// How far records were removed for their age; nothing of it where it cannot be read.
  RemovedForAge LastRemovedForAge() const;

  /// The names of the datasets of which there are records, by series; device contexts have none.
  std::map<std::int64_t, std::string> DatasetNames() const;
  /// The names of the items of which there are records, by series; contexts have none.
  std::map<std::int64_t, std::string> ItemNames() const;

  /// A number that changes when another process writes to the store; cheap enough to be asked several times a second.
  std::int64_t ChangeCounter() const;

  /// True when the file that is read is no longer the one of its name: it was set aside or removed, and nothing will be
  /// written to it any more. Never on Windows, where a file that somebody reads keeps its name.
  bool FileHasMoved() const;

 private:
  class Impl;
  explicit RecordReader(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace TVK
