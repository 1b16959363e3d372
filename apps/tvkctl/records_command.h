// `tvkctl records`: shows what the store holds, and goes on showing what comes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "client/records/record_kind.h"
#include "platform/runtime.h"

namespace tvkctl {

enum class RecordFormat {
  kTable,  ///< For a terminal of 120 columns.
  kJson,   ///< One object a line, as the store keeps it.
  kCsv,    ///< RFC 4180 with a header line.
};

struct RecordsOptions {
  std::filesystem::path data_dir;       ///< Folder of the store.
  std::optional<TVK::RecordKind> kind;  ///< Absent: all kinds.
  std::string dataset;                  ///< Dataset name, UTF-8, ASCII case aside. Empty: all.
  std::string since;                    ///< As ParseSince takes it. Empty: from the beginning.
  std::optional<std::uint64_t> limit;   ///< The newest so many of what is there. Absent: all.
  bool follow = false;                  ///< Goes on until `stop` is signalled.
  RecordFormat format = RecordFormat::kTable;
};

/// The moment that `text` means, in seconds since 1970: a duration before now ("90s", "30m", "2h", "1d"), a local time
/// ("2026-01-31", "2026-01-31T09:05:00"), or the time at an offset from UTC ("2026-01-31T09:05:00+0100"). Nothing when
/// it is none of them or the calendar has no such day.
std::optional<std::int64_t> ParseSince(std::string_view text, const platform::Clock& clock);

/// Writes the records to `out`, what went wrong to `errors`. `stop` ends following; it may be null when nothing is
/// followed. Returns the exit code: 0; 1 when an option has no meaning; 2 when there is no store in the folder; 3 when
/// the store cannot be read or `out` takes no more. What could be read of a damaged store is written all the same.
int RunRecords(const RecordsOptions& options, platform::Runtime& runtime, std::ostream& out, std::ostream& errors,
               platform::Waitable* stop);

}  // namespace tvkctl
