// `tvkctl records`: shows what the store holds, and goes on showing what comes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "client/records/record_kind.h"
#include "platform/runtime.h"

namespace tvkctl {

enum class RecordFormat {
  kTable,  ///< For people.
  kJson,   ///< One object a line, as the store keeps it.
  kCsv,    ///< RFC 4180 with a header line.
};

struct RecordsOptions {
  std::filesystem::path data_dir;       ///< Folder of the store.
  std::optional<TVK::RecordKind> kind;  ///< Absent: all kinds.
  std::string dataset;                  ///< Dataset name, UTF-8, ASCII case aside. Empty: all.
  std::string item;                     ///< Item name, as the dataset's.
  std::string since;                    ///< As ParseMoment (client/text/moment.h) takes it. Empty: from the begin.
  std::string until;                    ///< The same. Empty: to the end.
  std::optional<std::uint64_t> limit;   ///< The newest so many of what is there. Absent: all.
  bool reverse = false;                 ///< Newest first. Not with `follow`.
  bool follow = false;                  ///< Goes on until `stop` is signalled.
  bool utc = false;                     ///< Times of the table and of CSV in UTC.
  RecordFormat format = RecordFormat::kTable;
  std::vector<std::string> datasets;          ///< The names that a dataset may have beside those of the store.
  std::optional<std::size_t> terminal_width;  ///< Cells of the terminal that `out` is; absent: it is none.
};

/// Writes the records to `out`, what went wrong to `errors`, and there, too, why there is none. `stop` ends following,
/// which waits for a store that is not there yet; it may be null when nothing is followed. Returns the exit code: 0; 1
/// when an option has no meaning; 2 when there is no store in the folder; 3 when the store cannot be read or `out`
/// takes no more. What could be read of a damaged store is written all the same.
int RunRecords(const RecordsOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors,
               platform::Waitable* stop);

}  // namespace tvkctl
