// Records as a person reads them in a terminal, and as a spreadsheet takes them.
#pragma once

#include <string>
#include <string_view>

#include "client/records/record_kind.h"

namespace TVK {

/// "item", "dataset" or "device".
std::string_view RecordKindName(RecordKind kind);

/// Header line of the table, and one record in it: time, dataset, item and data ("key=value"), for a terminal of 120
/// columns. Data that needs more goes on in further lines below its column. Control characters are shown as "?", so
/// that a value cannot steer the terminal. Lines end with a line feed. A record that is not readable is shown as it
/// stands.
std::string RecordTableHeader();
std::string RecordTableLine(RecordKind kind, std::string_view json);

/// The same as comma-separated values (RFC 4180, lines end with CR LF): time,kind,dataset,item,context,data. `context`
/// is the dataset context's id, of a device context its own; `data` is a JSON object with what the table shows as data.
std::string RecordCsvHeader();
std::string RecordCsvLine(RecordKind kind, std::string_view json);

}  // namespace TVK
