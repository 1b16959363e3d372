// Records as a person reads them in a terminal, and as a spreadsheet takes them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "client/records/record_kind.h"
#include "platform/clock.h"

namespace TVK {

/// "item", "dataset" or "device".
std::string_view RecordKindName(RecordKind kind);

/// Whose time of day is shown.
enum class RecordZone {
  kAsWritten,  ///< That of the machine when it wrote the record.
  kLocal,      ///< The reader's, as the clock has it.
  kUtc,
};

struct RecordTimes {
  RecordZone zone = RecordZone::kAsWritten;
  const platform::Clock* clock = nullptr;  ///< May be null for times as they were written.
};

struct RecordTableStyle {
  RecordTimes times;
  std::size_t width = 120;  ///< Cells of a line.
};

/// Header line of the table, which names the zone, and one record in it: time, dataset, item and data ("key=value").
/// Data that needs more goes on in further lines below its column, in a table of less than 100 cells all of it; a list
/// in a value has a line for each of its elements. What could steer the terminal is shown as "?". Lines end with a line
/// feed. A record that is not readable is shown as it stands.
std::string RecordTableHeader(const RecordTableStyle& style = {});
std::string RecordTableLine(RecordKind kind, std::string_view json, const RecordTableStyle& style = {});

/// The same as comma-separated values (RFC 4180, lines end with CR LF): time,kind,dataset,item,context,data. `context`
/// is the dataset context's id, of a device context its own; `data` is a JSON object with what the table shows as data.
std::string RecordCsvHeader();
std::string RecordCsvLine(RecordKind kind, std::string_view json, const RecordTimes& times = {});

}  // namespace TVK
