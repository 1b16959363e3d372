// Makes the report of a store.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "client/report/report.h"
#include "client/store/record_reader.h"
#include "platform/clock.h"

namespace TVK {

struct ReportQuery {
  /// Counts, timelines and changes are of records from then on. Absent: of all.
  std::optional<std::int64_t> since_seconds = std::nullopt;
  /// Told between records, with the part that is read, from 0 to 1; false ends the reading. May be empty.
  std::function<bool(double)> progress = {};
};

/// Reads the store once, record by record: what is kept meanwhile does not grow with their number. False, with the
/// reason in `problem`, when it cannot be read to the end or `progress` ends it; `report` then says what was read.
bool BuildReport(const RecordReader& reader, const ReportQuery& query, const platform::Clock& clock, Report& report,
                 std::string& problem);

}  // namespace TVK
