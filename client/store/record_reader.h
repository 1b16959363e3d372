// Reading the store from outside the service, while the service runs: what `tvkctl records` shows.
#pragma once

#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/store/event_data_logging.h"

namespace TVK {

/// Which records to read. Absent means: no such condition.
struct RecordQuery {
  std::optional<RecordKind> kind = std::nullopt;
  /// ASCII case aside; device contexts have none and do not match.
  std::optional<std::wstring> dataset_name = std::nullopt;
  /// Written at or after this moment, seconds since 1970.
  std::optional<std::int64_t> since_seconds = std::nullopt;
  /// Only records with a larger sequence number.
  std::int64_t after_sequence = std::numeric_limits<std::int64_t>::min();
  /// The newest so many.
  std::optional<std::uint64_t> limit = std::nullopt;
};

struct StoredRecord {
  std::int64_t sequence = 0;  ///< The order of writing over all kinds; never used twice. Placeholders: below 0.
  RecordKind kind = RecordKind::kItem;
  std::int64_t written_seconds = 0;  ///< When the store took it, seconds since 1970.
  std::string json;                  ///< As client/records/record_json.h writes it.
  bool is_object = true;             ///< False when `json` is not one JSON object on one line, as it should be.
};

/// A read-only view of a store. One thread at a time.
class RecordReader {
 public:
  /// Null, with the reason in `problem`, when there is no store that can be read. `no_store`, when given, then says
  /// whether that is so because `file` does not exist or is no store of ours.
  static std::unique_ptr<RecordReader> Open(const std::filesystem::path& file, std::string& problem,
                                            bool* no_store = nullptr);
  ~RecordReader();
  RecordReader(const RecordReader&) = delete;
  RecordReader& operator=(const RecordReader&) = delete;

  /// The records that answer `query`, oldest first. False with the reason in `problem` when the store cannot be read
  /// to the end; `records` are then the newest ones, as far as they could be read.
  bool Read(const RecordQuery& query, std::vector<StoredRecord>& records, std::string& problem) const;

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
